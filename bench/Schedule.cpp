#include <signal.h>
#include <time.h>

#include <atomic>
#include <limits>

#include "Load.h"

namespace bench {

namespace {

std::atomic<bool> stopped{false};

void stop(int) {
    stopped = true;
}

std::uint64_t toNanoseconds(double seconds) {
    return static_cast<std::uint64_t>(seconds * 1e9);
}

}  // namespace

std::uint64_t nowNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U + static_cast<std::uint64_t>(now.tv_nsec);
}

Schedule::Schedule(const ClientOptions& options)
    : countedFrom_(nowNanoseconds() + toNanoseconds(options.warmUp)),
      end_(countedFrom_ + toNanoseconds(options.seconds)),
      most_(options.count > 0 ? options.count : std::numeric_limits<std::uint64_t>::max()) {}

double Schedule::countedSeconds(std::uint64_t now) const {
    return now > countedFrom_ ? static_cast<double>(now - countedFrom_) / 1e9 : 0;
}

void Schedule::heedSignals() {
    struct sigaction action {};
    action.sa_handler = stop;  // without SA_RESTART, so that blocking calls return
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

bool Schedule::isStopped() {
    return stopped.load(std::memory_order_relaxed);
}

void waitUntilOver(const Schedule& schedule) {
    while (!schedule.isOver(nowNanoseconds())) {
        const timespec moment{0, 10000000};
        nanosleep(&moment, nullptr);
    }
}

}  // namespace bench
