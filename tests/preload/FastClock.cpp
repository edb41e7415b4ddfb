// Preloaded into katd by tests: its clock runs FAST_CLOCK_FACTOR times as fast from FAST_CLOCK_START on
// (seconds since the epoch; without it, from now). Covers what katd waits and reads times with. With
// FAST_CLOCK_STEP, the time of day stands still and only sleep, then of a millisecond, moves it on; once it
// has come to FAST_CLOCK_JUMP_AT it is set FAST_CLOCK_JUMP_BY seconds on, or back. With
// FAST_CLOCK_FAIL_ACCEPT, accept fails as long as the file of that name exists.
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdlib>

namespace {

// Names of the functions for 64-bit times, as the C library exports them.
#if defined(__i386__)
constexpr char CLOCK_GETTIME[] = "__clock_gettime64";
constexpr char NANOSLEEP[] = "__nanosleep64";
constexpr char SETITIMER[] = "__setitimer64";
constexpr char TIMED_WAIT[] = "__pthread_cond_timedwait64";
#else
constexpr char CLOCK_GETTIME[] = "clock_gettime";
constexpr char NANOSLEEP[] = "nanosleep";
constexpr char SETITIMER[] = "setitimer";
constexpr char TIMED_WAIT[] = "pthread_cond_timedwait";
#endif

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

double realSeconds(clockid_t clock) {
    static auto* const real = next<int(clockid_t, timespec*)>(CLOCK_GETTIME);
    timespec now{};
    real(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

timespec toTimespec(double seconds) {
    timespec result{};
    result.tv_sec = static_cast<time_t>(std::floor(seconds));
    result.tv_nsec = static_cast<long>((seconds - std::floor(seconds)) * 1e9);
    return result;
}

double setting(const char* name, double otherwise) {
    const char* text = getenv(name);
    return text != nullptr ? std::atof(text) : otherwise;
}

const double factor = setting("FAST_CLOCK_FACTOR", 1);
const double limitFactor = setting("FAST_CLOCK_LIMIT_FACTOR", 1);
const double monotonicStart = realSeconds(CLOCK_MONOTONIC);
const double realStart = realSeconds(CLOCK_REALTIME);
const double shownStart = setting("FAST_CLOCK_START", realStart);
const bool isStepped = getenv("FAST_CLOCK_STEP") != nullptr;
std::atomic<time_t> steppedTime{static_cast<time_t>(shownStart)};

// One thread sleeps at a time.
void step(unsigned seconds) {
    static time_t jumpAt = static_cast<time_t>(setting("FAST_CLOCK_JUMP_AT", 0));
    steppedTime += static_cast<time_t>(seconds);
    if (jumpAt == 0 || steppedTime < jumpAt) return;
    steppedTime += static_cast<time_t>(setting("FAST_CLOCK_JUMP_BY", 0));
    jumpAt = 0;
}

}  // namespace

extern "C" {

time_t time(time_t* out) noexcept {
    const time_t now =
        isStepped ? steppedTime.load()
                  : toTimespec(shownStart + (realSeconds(CLOCK_REALTIME) - realStart) * factor).tv_sec;
    if (out != nullptr) *out = now;
    return now;
}

int clock_gettime(clockid_t clock, timespec* out) noexcept {
    if (clock != CLOCK_MONOTONIC) {
        *out = toTimespec(realSeconds(clock));
    } else {
        *out = toTimespec(monotonicStart + (realSeconds(clock) - monotonicStart) * limitFactor);
    }
    return 0;
}

unsigned sleep(unsigned seconds) {
    static auto* const real = next<int(const timespec*, timespec*)>(NANOSLEEP);
    timespec left = toTimespec(isStepped ? 0.001 : seconds / factor);
    if (isStepped) step(seconds);
    while (real(&left, &left) != 0 && errno == EINTR) {
    }
    return 0;
}

// Only long times, and less: what bounds the end of the process must not run out before its work is done.
int setitimer(__itimer_which_t which, const itimerval* value, itimerval* before) noexcept {
    static auto* const real = next<int(__itimer_which_t, const itimerval*, itimerval*)>(SETITIMER);
    itimerval scaled = *value;
    if (value->it_value.tv_sec >= 10) {
        const timespec shortened = toTimespec(1 + static_cast<double>(value->it_value.tv_sec) / factor);
        scaled.it_value.tv_sec = shortened.tv_sec;
        scaled.it_value.tv_usec = shortened.tv_nsec / 1000 + 1;
    }
    return real(which, &scaled, before);
}

// katd waits on the monotonic clock alone.
int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
    static auto* const real = next<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)>(TIMED_WAIT);
    const double shown = static_cast<double>(until->tv_sec) + static_cast<double>(until->tv_nsec) / 1e9;
    const timespec realUntil = toTimespec(monotonicStart + (shown - monotonicStart) / limitFactor);
    return real(condition, mutex, &realUntil);
}

int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
    static auto* const real = next<int(int, sockaddr*, socklen_t*, int)>("accept4");
    const int connection = real(socket, address, length, flags);
    const char* file = getenv("FAST_CLOCK_FAIL_ACCEPT");
    if (connection < 0 || file == nullptr || access(file, F_OK) != 0) return connection;
    close(connection);
    errno = EPROTO;
    return -1;
}
}
