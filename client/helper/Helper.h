// katc helper: answers the questions of the proxy squid, line by line, until its input ends.
#ifndef KATC_HELPER_HELPER_H
#define KATC_HELPER_HELPER_H

namespace katc {

// Runs the helper; argv[0] is "helper". Returns the exit status: 0 at the end of the input, also if nobody
// reads the answers any more; 1 if the input cannot be read or an answer cannot be written; 2, with a message
// on standard error, if the arguments, the settings or a file cannot be used. It does not end because katd is
// away. It ends the process itself if an answer cannot be written, because other threads are blocked in reads
// then.
int helperMain(int argc, const char* const* argv);

}  // namespace katc

#endif
