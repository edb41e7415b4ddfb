// Exit statuses of katc.
#ifndef KATC_EXITSTATUS_H
#define KATC_EXITSTATUS_H

namespace katc {

enum ExitStatus {
    answered = 0,    // every URL, or the control request, got its reply
    unanswered = 1,  // one did not, or its answer could not be written
    badUsage = 2,    // the arguments, the settings or the names cannot be used
    noDaemon = 3     // no daemon listens on the socket
};

}  // namespace katc

#endif
