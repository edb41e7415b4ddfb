// Interrupts the test's system calls every millisecond during its lifetime.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <csignal>

namespace katd_test {

class Ticks {
public:
    Ticks() {
        struct sigaction action {};  // without SA_RESTART
        action.sa_handler = [](int) { ++count; };
        sigaction(SIGALRM, &action, &oldAction_);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
    }
    ~Ticks() {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &oldAction_, nullptr);
    }
    Ticks(const Ticks&) = delete;
    Ticks& operator=(const Ticks&) = delete;

    // From now on the calling thread is not interrupted, only the others are.
    static void blockInThisThread() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    static inline std::atomic<int> count{0};

private:
    struct sigaction oldAction_ {};
};

}  // namespace katd_test
