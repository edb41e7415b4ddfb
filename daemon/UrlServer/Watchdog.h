// Time limits of calls into code that katd does not control.
#ifndef KATD_URLSERVER_WATCHDOG_H
#define KATD_URLSERVER_WATCHDOG_H

#include <time.h>

#include <cstdint>
#include <optional>

#include "UrlServer/LateCall.h"

namespace KATD_SPACE {

// Watches one call from construction to destruction; a call that takes longer ends the process
// (endForLateCall). Each call has its own limit: calls that overlap do not arm or disarm one another.
//
// One thread, started by the first Watchdog of the process, watches all calls. While it cannot be created,
// each call gets a kernel timer of its own, which interrupts the call with SIGALRM; the handlers of that
// signal call endIfLate().
//
// Use it on the stack of the thread that makes the call. Cheap: two short critical sections, and no system
// call but for the first watch after a quiet spell.
class Watchdog {
public:
    // limitSec 0 or less: no limit. subject (may be null) must live as long as the Watchdog; the report has
    // the first 1023 bytes of it.
    Watchdog(int limitSec, LateCall call, const char* subject);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // If the calling thread is making a call that its own timer has found to be late: reports it and ends the
    // process. Otherwise returns. Async-signal-safe.
    static void endIfLate();

private:
    struct WatchingThread;

    void startTimer();

    const int limitSec_;
    const LateCall call_;
    const char* const subject_;
    std::int64_t deadlineMs_ = 0;  // on the monotonic clock
    // With the watching thread: neighbours in its list, which is sorted by deadline.
    bool isListed_ = false;
    Watchdog* earlier_ = nullptr;
    Watchdog* later_ = nullptr;
    // Without it.
    struct Timer {
        LateCallExecution report;
        timer_t id;
    };
    std::optional<Timer> timer_;
};

}  // namespace KATD_SPACE

#endif
