// Asks a server or a helper, and measures.
#include <signal.h>
#include <sys/resource.h>

#include <cinttypes>
#include <cstdio>

#include "Load.h"

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Of this process and its helper, which has ended.
double cpuSeconds() {
    double sum = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        sum += secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    }
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace bench;
    ClientOptions options;
    parse(argc, argv, &options);
    signal(SIGPIPE, SIG_IGN);
    Schedule::heedSignals();
    const Questions questions(options.questions);
    if (options.idle >= 0) {
        std::printf("{\"idle\": %u}\n", holdIdle(options, questions));
        std::fflush(stdout);
    }

    Schedule schedule(options);
    const double cpuBefore = cpuSeconds();
    if (!options.helper.empty()) {
        loadHelper(options, questions, &schedule);
    } else if (options.reconnects) {
        loadByReconnecting(options, questions, &schedule);
    } else if (options.connections > 0) {
        loadConnections(options, questions, &schedule);
    } else {
        waitUntilOver(schedule);
    }
    const double seconds = schedule.countedSeconds(nowNanoseconds());
    const Latency& latency = schedule.latency;
    std::printf(
        "{\"requests\": %" PRIu64
        ", \"seconds\": %.4f, \"rate\": %.0f, \"cpu_seconds\": %.3f, "
        "\"p50_us\": %.1f, \"p90_us\": %.1f, \"p99_us\": %.1f, \"p999_us\": %.1f, \"max_us\": %.1f}\n",
        latency.total(), seconds, seconds > 0 ? static_cast<double>(latency.total()) / seconds : 0.0,
        cpuSeconds() - cpuBefore, latency.percentile(0.5), latency.percentile(0.9), latency.percentile(0.99),
        latency.percentile(0.999), latency.percentile(1));
}
