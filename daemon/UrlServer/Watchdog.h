// Limits the time of calls into code that katd does not control.
#ifndef KATD_URLSERVER_WATCHDOG_H
#define KATD_URLSERVER_WATCHDOG_H

#include <cstdint>

namespace KATD_SPACE {

// Watches one call from construction to destruction. Each has its own limit: calls that overlap never arm or
// disarm one another. The limits are kept by one thread, started by the first Watchdog of the process. While
// that thread cannot be created, the process's alarm(2) stands in for it, set to the earliest limit: SIGALRM
// then does what its handler says.
//
// Use it on the stack of the thread that makes the call. Cheap: two short mutex sections, no system call but
// for the first watch after a quiet spell.
class Watchdog {
public:
    // Called in the watching thread with the subject and limit of the call that took too long; must not
    // return.
    using Expired = void (*)(const char* subject, int limitSec);

    // limitSec 0 or less: no limit. subject (may be null) must live as long as the Watchdog; the callback
    // gets a copy, cut at 1023 bytes, since the call may come back while the callback runs.
    Watchdog(int limitSec, Expired expired, const char* subject);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    struct Keeper;  // the list of the armed and the thread that watches them

    const int limitSec_;
    const Expired expired_;
    const char* const subject_;
    std::int64_t deadlineMs_ = 0;  // on the monotonic clock
    Watchdog* earlier_ = nullptr;  // neighbours in the list of the armed, by deadline
    Watchdog* later_ = nullptr;
};

}  // namespace KATD_SPACE

#endif
