#include "UrlServer/ProcessEnd.h"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace KATD_SPACE {

namespace {

std::atomic<int> endStatus{1};
std::atomic<bool> endBounded{false};
std::atomic<bool> oneSpeaks{false};
thread_local bool speaksAlone = false;
thread_local bool mute = false;
static_assert(std::atomic<int>::is_always_lock_free, "read by a signal handler");

[[noreturn]] void endNow(int) {
    _exit(endStatus.load());
}

void setTimer(int milliseconds) {
    itimerval timer{};
    timer.it_value.tv_sec = milliseconds / 1000;
    timer.it_value.tv_usec = milliseconds % 1000 * 1000L;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

void endWithin(int status, int milliseconds) {
    endStatus.store(status);
    struct sigaction action {};
    action.sa_handler = endNow;
    sigaction(SIGALRM, &action, nullptr);
    endBounded.store(true);
    setTimer(milliseconds);
    // Every other thread may be stuck with signals blocked; this one takes it then.
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
}

void cancelEnd() {
    setTimer(0);
    endBounded.store(false);
}

bool endIsBounded() {
    return endBounded.load();
}

void speakAlone() {
    speaksAlone = true;
    oneSpeaks.store(true, std::memory_order_relaxed);
}

void stayMute() {
    mute = true;
}

bool mayBeHeard() {
    while (oneSpeaks.load(std::memory_order_relaxed) && !speaksAlone)
        pause();
    return !mute;
}

void endProcess(int status) {
    endWithin(status, endGraceMs);
    std::fflush(stdout);
    _exit(status);
}

}  // namespace KATD_SPACE
