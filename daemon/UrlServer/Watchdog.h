// Time limits of calls into code that katd does not control.
#ifndef KATD_WATCHDOG_H
#define KATD_WATCHDOG_H

#include <cstdint>
#include <ctime>
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
    // seconds: the limit; 0 or less: none. askedUrl must live as long as the Watchdog; the report has its
    // first 1023 bytes.
    Watchdog(int seconds, LateCall kind, const char* askedUrl);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // If the calling thread is making a call that its own timer has found to be late: reports it and ends the
    // process. Otherwise returns. Async-signal-safe.
    static void endIfLate();

private:
    struct WatchingThread;

    void startTimer();

    const int limitSec;
    const LateCall call;
    const char* const url;
    std::int64_t deadlineMs = 0;  // on the monotonic clock
    // With the watching thread: neighbours in its list, which is sorted by deadline.
    bool isListed = false;
    Watchdog* earlier = nullptr;
    Watchdog* later = nullptr;
    // Without it.
    struct Timer {
        LateCallExecution report;
        timer_t id;
    };
    std::optional<Timer> timer;
};

}  // namespace KATD_SPACE

#endif
