#include "UrlServer/Watchdog.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <limits>

#include "KatdUtil/DetachedThread.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/ConnectionBuffer.h"

#ifndef sigev_notify_thread_id
#define sigev_notify_thread_id _sigev_un._tid  // older C libraries do not name it
#endif

namespace KATD_SPACE {

namespace {

constexpr unsigned watchingStackSize = 256 * 1024;  // bytes
constexpr std::int64_t timerToleranceMs = 100;      // between the clock and the timer
constexpr std::int64_t quietMs = 1000;  // without a call, until the watching thread sleeps for good

// The call of this thread that has a timer.
thread_local const Watchdog* timedCall = nullptr;

}  // namespace

// Calls, the one that is due first at the front.
struct Watchdog::Queue {
    Watchdog* first = nullptr;
    Watchdog* last = nullptr;

    // From the end: as the calls of a queue mostly have the same limit, a new one nearly always belongs
    // there.
    void insert(Watchdog* watched) {
        Watchdog* before = last;
        while (before != nullptr && (before->dueMs > watched->dueMs ||
                                     (before->dueMs == watched->dueMs && before->number > watched->number)))
            before = before->earlier;
        watched->earlier = before;
        watched->later = before != nullptr ? before->later : first;
        (before != nullptr ? before->later : first) = watched;
        (watched->later != nullptr ? watched->later->earlier : last) = watched;
        watched->queue = this;
    }

    void remove(Watchdog* watched) {
        (watched->earlier != nullptr ? watched->earlier->later : first) = watched->later;
        (watched->later != nullptr ? watched->later->earlier : last) = watched->earlier;
    }
};

// All static and never destroyed: calls may be under way when the process ends.
struct Watchdog::WatchingThread {
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

    static inline pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;  // guards the rest
    static inline pthread_cond_t changed;                             // on the monotonic clock
    static inline bool running = false;
    static inline std::int64_t wakeMs = never;     // when the thread looks next unless it is woken earlier
    static inline bool isBusy = false;             // a call has come since the thread last found none
    static inline std::uint64_t calls = 0;         // so far
    static inline Queue untold;                    // calls of which callIsSlow() is to be told
    static inline Queue limited;                   // the other calls, which are due at their limits
    static inline const Watchdog* late = nullptr;  // the call for which the process ends

    static void start() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&changed, &attributes);
        pthread_condattr_destroy(&attributes);
        // No signal handler may run in this thread and so stop it.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        running = startDetachedThread(watch, nullptr, watchingStackSize) == 0;
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        if (!running) pthread_cond_destroy(&changed);
    }

    // slowMs: when callIsSlow() is due.
    static void insert(Watchdog* watched, std::int64_t slowMs) {
        watched->dueMs = std::min(slowMs, watched->deadlineMs);
        (watched->dueMs < watched->deadlineMs ? untold : limited).insert(watched);
    }

    static Watchdog* nextDue() {
        Watchdog* const a = untold.first;
        Watchdog* const b = limited.first;
        return b == nullptr || (a != nullptr && a->dueMs < b->dueMs) ? a : b;
    }

    static void* watch(void*) {
        pthread_mutex_lock(&mutex);
        for (;;) {
            Watchdog* const next = nextDue();
            if (next == nullptr && !isBusy) {
                wakeMs = never;
                pthread_cond_wait(&changed, &mutex);
            } else if (next == nullptr || Utils::nowMs() < next->dueMs) {
                // Quick calls are over before this thread sees them, and need not wake it again.
                isBusy = isBusy && next != nullptr;
                wakeMs = next != nullptr ? next->dueMs : Utils::nowMs() + quietMs;
                timespec until{};
                until.tv_sec = static_cast<time_t>(wakeMs / 1000);
                until.tv_nsec = static_cast<long>(wakeMs % 1000 * 1000000);
                pthread_cond_timedwait(&changed, &mutex, &until);
            } else if (next->queue == &limited) {
                expire(*next);
            } else {
                // The mutex keeps the call from returning meanwhile.
                const std::int64_t againMs = next->client->callIsSlow();
                untold.remove(next);
                insert(next, againMs);
            }
        }
    }

    // Called with the mutex locked; unlocks it, so that other calls can return. The late call may return as
    // well: its URL is copied before.
    [[noreturn]] static void expire(const Watchdog& watched) {
        late = &watched;
        // This thread does not come back to the other calls; new ones are not listed.
        for (Watchdog* told = untold.first; told != nullptr; told = told->later)
            told->client->callIsSlow();
        char url[1024];
        std::snprintf(url, sizeof(url), "%s", watched.url);
        const LateCall call = watched.call;
        const int limitSec = watched.limitSec;
        pthread_mutex_unlock(&mutex);
        endForLateCall(call, url, limitSec);
    }
};

Watchdog::Watchdog(int seconds, LateCall kind, const char* askedUrl, ConnectionBuffer* waiting)
    : limitSec(seconds), call(kind), url(askedUrl), client(waiting) {
    if (limitSec > 0) {
        const std::int64_t now = Utils::nowMs();
        deadlineMs = now + static_cast<std::int64_t>(limitSec) * 1000;
        const std::int64_t slowMs = client != nullptr ? client->beginCall(now) : ConnectionBuffer::noCallDue;
        pthread_mutex_lock(&WatchingThread::mutex);
        if (!WatchingThread::running) WatchingThread::start();
        isListed = WatchingThread::running && WatchingThread::late == nullptr;
        if (isListed) {
            number = ++WatchingThread::calls;
            WatchingThread::insert(this, slowMs);
            WatchingThread::isBusy = true;
            if (dueMs < WatchingThread::wakeMs) pthread_cond_signal(&WatchingThread::changed);
        }
        pthread_mutex_unlock(&WatchingThread::mutex);
    }
    if (isListed) return;
    if (client != nullptr) client->send();
    if (limitSec > 0) startTimer();
}

Watchdog::~Watchdog() {
    if (timer) {
        timer_delete(timer->id);  // first: a signal that it has sent still finds the late call
        timedCall = nullptr;
    }
    if (!isListed) return;
    pthread_mutex_lock(&WatchingThread::mutex);
    const bool isLate = WatchingThread::late == this;
    queue->remove(this);
    pthread_mutex_unlock(&WatchingThread::mutex);
    if (isLate) {
        for (;;)
            pause();  // the process is ending: the caller must not act on the answer
    }
}

// Without memory for a timer the call is not watched.
void Watchdog::startTimer() {
    sigevent event{};
    deadlineMs = Utils::nowMs() + static_cast<std::int64_t>(limitSec) * 1000;
    event.sigev_notify = SIGEV_THREAD_ID;  // no other thread can tell which call is late
    event.sigev_signo = SIGALRM;
    event.sigev_notify_thread_id = static_cast<pid_t>(syscall(SYS_gettid));
    timer.emplace(Timer{LateCallExecution(call, url, limitSec), timer_t{}});
    if (timer_create(CLOCK_MONOTONIC, &event, &timer->id) != 0) {
        timer.reset();
        return;
    }
    timedCall = this;
    itimerspec limit{};
    limit.it_value.tv_sec = limitSec;
    timer_settime(timer->id, 0, &limit, nullptr);
}

void Watchdog::endIfLate() {
    const Watchdog* const watched = timedCall;
    if (watched != nullptr && Utils::nowMs() >= watched->deadlineMs - timerToleranceMs)
        watched->timer->report.execute();
}

}  // namespace KATD_SPACE
