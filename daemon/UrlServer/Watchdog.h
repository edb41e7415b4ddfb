// Time limits of calls into code that katd does not control.
#ifndef KATD_WATCHDOG_H
#define KATD_WATCHDOG_H

#include <cstdint>
#include <ctime>
#include <optional>

#include "UrlServer/LateCall.h"

namespace KATD_SPACE {

class ConnectionBuffer;

// Watches one call from construction to destruction; a call that takes longer ends the process
// (endForLateCall). Each call has its own limit: calls that overlap do not arm or disarm one another.
//
// One thread, started by the first Watchdog of the process, watches all calls. While it cannot be created,
// each call gets a kernel timer of its own, which interrupts the call with SIGALRM; the handlers of that
// signal call endIfLate().
//
// The thread also tells the connection that waits for the call when the call is slow
// (ConnectionBuffer::callIsSlow). Without the thread, without a limit, or while the process ends for a late
// call, the Watchdog sends what the connection holds back before the call.
//
// Use it on the stack of the thread that makes the call. Cheap: two short critical sections, and a system
// call only for the first watch after a quiet second, of a call over which replies are held back, or after a
// call that was found to be slow.
class Watchdog {
public:
    // seconds: the limit; 0 or less: none. askedUrl must live as long as the Watchdog; the report has its
    // first 1023 bytes. waiting: the connection that waits for the call, or null.
    Watchdog(int seconds, LateCall kind, const char* askedUrl, ConnectionBuffer* waiting = nullptr);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // If the calling thread is making a call that its own timer has found to be late: reports it and ends the
    // process. Otherwise returns. Async-signal-safe.
    static void endIfLate();

private:
    struct WatchingThread;
    struct Queue;

    void startTimer();

    const int limitSec;
    const LateCall call;
    const char* const url;
    ConnectionBuffer* const client;
    std::int64_t deadlineMs = 0;  // on the monotonic clock
    // With the watching thread.
    bool isListed = false;
    // Guarded by its mutex: when it has to do something about the call, the number of the call, and the place
    // in a queue of calls by both.
    std::int64_t dueMs = 0;
    std::uint64_t number = 0;
    Queue* queue = nullptr;
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
