// Preloaded into katd by tests: hours pass in moments.
//
//   The time of day starts at FAST_CLOCK_START (seconds since the epoch; now by default) and only sleep(3)
//   moves it on. When it reaches FAST_CLOCK_JUMP_AT, it is set FAST_CLOCK_JUMP_BY seconds ahead (negative:
//   back). sleep(3) takes a millisecond, or its time divided by FAST_CLOCK_FACTOR. The monotonic clock, which
//   the watchdog uses, runs FAST_CLOCK_LIMIT_FACTOR times as fast.
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <cstdlib>

namespace {

// The names under which the C library exports the functions for 64-bit times.
#if defined(__i386__)
#define TIME64(plain, name64) name64
#else
#define TIME64(plain, name64) plain
#endif

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

double setting(const char* name, double byDefault) {
    const char* text = getenv(name);
    return text != nullptr ? std::atof(text) : byDefault;
}

timespec toTimespec(double seconds) {
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>((seconds - static_cast<double>(result.tv_sec)) * 1e9);
    return result;
}

double realSeconds(clockid_t clock) {
    static auto* const real = next<int(clockid_t, timespec*)>(TIME64("clock_gettime", "__clock_gettime64"));
    timespec now{};
    real(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

const double factor = setting("FAST_CLOCK_FACTOR", 0);
const double limitFactor = setting("FAST_CLOCK_LIMIT_FACTOR", 1);
const double start = realSeconds(CLOCK_MONOTONIC);
std::atomic<time_t> timeOfDay{static_cast<time_t>(setting("FAST_CLOCK_START", realSeconds(CLOCK_REALTIME)))};
time_t jumpAt = static_cast<time_t>(setting("FAST_CLOCK_JUMP_AT", 0));

}  // namespace

extern "C" {

time_t time(time_t* out) noexcept {
    const time_t now = timeOfDay;
    if (out != nullptr) *out = now;
    return now;
}

int clock_gettime(clockid_t clock, timespec* out) noexcept {
    const double now = realSeconds(clock);
    *out = toTimespec(clock == CLOCK_MONOTONIC ? start + (now - start) * limitFactor : now);
    return 0;
}

// One thread sleeps at a time.
unsigned sleep(unsigned seconds) {
    static auto* const real = next<int(const timespec*, timespec*)>(TIME64("nanosleep", "__nanosleep64"));
    timespec left = toTimespec(factor != 0 ? seconds / factor : 0.001);
    while (real(&left, &left) != 0 && errno == EINTR) {
    }
    timeOfDay += static_cast<time_t>(seconds);
    if (jumpAt != 0 && timeOfDay >= jumpAt) {
        timeOfDay += static_cast<time_t>(setting("FAST_CLOCK_JUMP_BY", 0));
        jumpAt = 0;
    }
    return 0;
}

int timer_settime(timer_t timer, int flags, const itimerspec* value, itimerspec* before) noexcept {
    static auto* const real =
        next<int(timer_t, int, const itimerspec*, itimerspec*)>(TIME64("timer_settime", "__timer_settime64"));
    itimerspec scaled{};
    scaled.it_value = toTimespec(static_cast<double>(value->it_value.tv_sec) / limitFactor);
    return real(timer, flags, &scaled, before);
}

// Scales long times only: what bounds the end of the process must not run out before its work is done.
int setitimer(__itimer_which_t which, const itimerval* value, itimerval* before) noexcept {
    static auto* const real =
        next<int(__itimer_which_t, const itimerval*, itimerval*)>(TIME64("setitimer", "__setitimer64"));
    itimerval scaled = *value;
    if (factor != 0 && value->it_value.tv_sec >= 10)
        scaled.it_value.tv_sec =
            2 + static_cast<time_t>(static_cast<double>(value->it_value.tv_sec) / factor);
    return real(which, &scaled, before);
}

// katd waits on the monotonic clock only.
int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
    static auto* const real = next<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)>(
        TIME64("pthread_cond_timedwait", "__pthread_cond_timedwait64"));
    const double shown = static_cast<double>(until->tv_sec) + static_cast<double>(until->tv_nsec) / 1e9;
    const timespec realUntil = toTimespec(start + (shown - start) / limitFactor);
    return real(condition, mutex, &realUntil);
}
}
