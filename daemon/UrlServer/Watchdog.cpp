#include "UrlServer/Watchdog.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <limits>

#include "KatdUtil/DetachedThread.h"
#include "UrlServer/ProcessEnd.h"

namespace KATD_SPACE {

namespace {

std::int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

// All static and never destroyed: calls may be under way when the process ends.
struct Watchdog::Keeper {
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

    // Guards the rest; held for moments only.
    static inline pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    // On the monotonic clock; made before the thread that waits for it.
    static inline pthread_cond_t changed;
    static inline bool running = false;  // the watching thread exists
    // When that thread looks next, unless it is told to look earlier.
    static inline std::int64_t wakeMs = never;
    static inline Watchdog* first = nullptr;  // the armed, earliest deadline first
    static inline Watchdog* last = nullptr;
    static inline const Watchdog* late = nullptr;  // the call that the process is ending for
    static inline bool alarmIsSet = false;         // in place of a thread that could not be created

    static void start() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&changed, &attributes);
        pthread_condattr_destroy(&attributes);
        // No signal's handler may run in, and thereby stop, the thread that has to bring about the end.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        running = startDetachedThread(watch, nullptr) == 0;
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        if (!running) pthread_cond_destroy(&changed);
        // The thread watches the calls from before it, too.
        if (running && alarmIsSet) alarm(0);
    }

    // All calls of one setting have one limit, so that the place of a new one is nearly always the end.
    static void insert(Watchdog* armed) {
        Watchdog* before = last;
        while (before != nullptr && before->deadlineMs_ > armed->deadlineMs_)
            before = before->earlier_;
        armed->earlier_ = before;
        armed->later_ = before != nullptr ? before->later_ : first;
        (before != nullptr ? before->later_ : first) = armed;
        (armed->later_ != nullptr ? armed->later_->earlier_ : last) = armed;
    }

    static void remove(Watchdog* armed) {
        (armed->earlier_ != nullptr ? armed->earlier_->later_ : first) = armed->later_;
        (armed->later_ != nullptr ? armed->later_->earlier_ : last) = armed->earlier_;
    }

    static void setAlarm() {
        if (endIsBounded()) return;  // by the same timer, and that end goes first
        std::int64_t seconds = 0;
        if (first != nullptr) {
            seconds = (first->deadlineMs_ - nowMs() + 999) / 1000;
            if (seconds < 1) seconds = 1;
        }
        alarm(static_cast<unsigned>(seconds));
        alarmIsSet = first != nullptr;
    }

    static void* watch(void*) {
        pthread_mutex_lock(&mutex);
        for (;;) {
            if (first == nullptr) {
                wakeMs = never;
                pthread_cond_wait(&changed, &mutex);
            } else if (nowMs() >= first->deadlineMs_) {
                expire(*first);
            } else {
                wakeMs = first->deadlineMs_;
                timespec until{};
                until.tv_sec = static_cast<time_t>(wakeMs / 1000);
                until.tv_nsec = static_cast<long>(wakeMs % 1000 * 1000000);
                pthread_cond_timedwait(&changed, &mutex, &until);
            }
        }
    }

    // Called with the mutex held; gives it up, so that other calls may come back meanwhile.
    [[noreturn]] static void expire(const Watchdog& call) {
        late = &call;
        char subject[1024] = "";
        if (call.subject_ != nullptr) std::snprintf(subject, sizeof(subject), "%s", call.subject_);
        const Expired expired = call.expired_;
        const int limitSec = call.limitSec_;
        pthread_mutex_unlock(&mutex);
        expired(subject, limitSec);
        _exit(1);
    }
};

Watchdog::Watchdog(int limitSec, Expired expired, const char* subject)
    : limitSec_(limitSec), expired_(expired), subject_(subject) {
    if (limitSec_ <= 0) return;
    deadlineMs_ = nowMs() + static_cast<std::int64_t>(limitSec_) * 1000;
    pthread_mutex_lock(&Keeper::mutex);
    if (!Keeper::running) Keeper::start();
    Keeper::insert(this);
    if (!Keeper::running) {
        Keeper::setAlarm();
    } else if (deadlineMs_ < Keeper::wakeMs) {
        // Rare: a watching thread that slept until an earlier call's limit is left alone.
        pthread_cond_signal(&Keeper::changed);
    }
    pthread_mutex_unlock(&Keeper::mutex);
}

Watchdog::~Watchdog() {
    if (limitSec_ <= 0) return;
    pthread_mutex_lock(&Keeper::mutex);
    const bool tooLate = Keeper::late == this;
    Keeper::remove(this);
    if (!Keeper::running) Keeper::setAlarm();
    pthread_mutex_unlock(&Keeper::mutex);
    if (tooLate) {
        for (;;)
            pause();  // whoever waits for the answer must not act on it any more
    }
}

}  // namespace KATD_SPACE
