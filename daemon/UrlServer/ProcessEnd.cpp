#include "UrlServer/ProcessEnd.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>

namespace KATD_SPACE {

namespace {

std::atomic<int> endStatus{1};
static_assert(std::atomic<int>::is_always_lock_free, "read by a signal handler");

pthread_mutex_t timerMutex = PTHREAD_MUTEX_INITIALIZER;
bool timerIsEnd = false;  // guarded by timerMutex

[[noreturn]] void endNow(int) {
    _exit(endStatus.load());
}

bool timerExpiresWithin(int milliseconds) {
    itimerval left{};
    getitimer(ITIMER_REAL, &left);
    const bool running = left.it_value.tv_sec != 0 || left.it_value.tv_usec != 0;
    return running && left.it_value.tv_sec * 1000L + left.it_value.tv_usec / 1000 <= milliseconds;
}

void setEnd(int status, int milliseconds, bool mayPostpone) {
    pthread_mutex_lock(&timerMutex);
    if (mayPostpone || !timerIsEnd || !timerExpiresWithin(milliseconds)) {
        endStatus.store(status);
        struct sigaction action {};
        action.sa_handler = endNow;
        sigaction(SIGALRM, &action, nullptr);
        itimerval timer{};
        timer.it_value.tv_sec = milliseconds / 1000;
        timer.it_value.tv_usec = milliseconds % 1000 * 1000L;
        setitimer(ITIMER_REAL, &timer, nullptr);
        timerIsEnd = true;
    }
    pthread_mutex_unlock(&timerMutex);
    // All other threads may be stuck with signals blocked.
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
}

}  // namespace

void endWithin(int status, int milliseconds) {
    setEnd(status, milliseconds, false);
}

void postponeEnd(int status, int milliseconds) {
    setEnd(status, milliseconds, true);
}

void endProcess(int status) {
    endWithin(status, endGraceMs);
    std::fflush(stdout);
    _exit(status);
}

}  // namespace KATD_SPACE
