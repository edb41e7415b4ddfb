// What a client may change while the daemon runs.
#ifndef KATD_CONTROLREQUESTS_H
#define KATD_CONTROLREQUESTS_H

namespace KATD_SPACE {

// Carries out a control request; one at a time. body is the NUL-terminated message after the prefix, of which
// length bytes were received: a request whose operands are incomplete is refused. The outcome is reported in
// the log only. Thread-safe.
void carryOutControlRequest(const char* body, unsigned length);

}  // namespace KATD_SPACE

#endif
