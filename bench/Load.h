#ifndef KATD_BENCH_LOAD_H
#define KATD_BENCH_LOAD_H

#include <cstddef>
#include <cstdint>

#include "Latency.h"
#include "Options.h"
#include "Questions.h"

namespace bench {

std::uint64_t nowNanoseconds();

// When a load is counted, and when it ends.
class Schedule {
public:
    explicit Schedule(const ClientOptions& options);

    // Records an answer that took from `sent` to `now`.
    void answered(std::uint64_t sent, std::uint64_t now) {
        if (now < countedFrom_) return;
        latency.add(now - sent);
    }
    bool isOver(std::uint64_t now) const { return now >= end_ || latency.total() >= most_ || isStopped(); }
    double countedSeconds(std::uint64_t now) const;
    // From now on SIGTERM and SIGINT end a load early; its results are still printed.
    static void heedSignals();
    static bool isStopped();

    Latency latency;

private:
    std::uint64_t countedFrom_;
    std::uint64_t end_;
    std::uint64_t most_;
};

// Run until the schedule is over. End the process if an answer is wrong or missing.
void loadConnections(const ClientOptions& options, const Questions& questions, Schedule* schedule);
void loadByReconnecting(const ClientOptions& options, const Questions& questions, Schedule* schedule);
void loadHelper(const ClientOptions& options, const Questions& questions, Schedule* schedule);
void waitUntilOver(const Schedule& schedule);

// Opens connections, each of which asks once and stays open as long as the process lives. Returns their
// number: fewer than wanted if the server or the descriptor limit allows no more.
unsigned holdIdle(const ClientOptions& options, const Questions& questions);

}  // namespace bench

#endif
