#ifndef KATD_AVAILABILITYREPORTER_H
#define KATD_AVAILABILITYREPORTER_H

namespace KATD_SPACE {

struct EngineFailure;

// Both report that the classification service cannot be reached, run the program of WRITE_SYSLOG 300 seconds
// later and end the process with status 1. The delay keeps a supervisor from restarting katd against a
// service that is down.
//
// The messages may have to wait for the log for as long as another process or a hung engine call holds its
// locks. The event and the end do not wait for them: the program is started within a second after the delay,
// and what it does may take 60 seconds. (If no thread can be created, a locked log costs the event, but does
// not delay the end.)

// The server's address has no DNS entry.
[[noreturn]] void endForDns();

// The first classification failed, or did not return in time (failure null). *failure must live as long as
// the process.
[[noreturn]] void endForNetwork(const EngineFailure* failure);

}  // namespace KATD_SPACE

#endif
