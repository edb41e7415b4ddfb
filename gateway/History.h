// Counts of questions and answers per minute, for the administrator's page.
#ifndef GATEWAY_HISTORY_H
#define GATEWAY_HISTORY_H

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

#include "katclient.h"

namespace gateway {

// A ring buffer of minutes. Thread-safe.
class History {
public:
    static constexpr std::size_t minutes = 360;

    struct Minute {
        std::int64_t number = -1;  // minutes of the clock's epoch; -1: never used
        std::uint32_t questions = 0;
        std::uint32_t known = 0;
        std::uint32_t failed = 0;
        // Answers that took less than 2^i microseconds and not less than half of that.
        std::array<std::uint32_t, 32> latencies{};
        std::array<std::uint32_t, 256> categories{};

        // The time in seconds that the share `q` of the answers stayed below; 0 without answers.
        double latencySec(double q) const;
    };

    void add(const katclient_answer& answer, std::chrono::nanoseconds time);
    // The last `minutes` minutes, the current one last; minutes before construction have the number -1.
    std::vector<Minute> last() const;

private:
    static std::int64_t now();

    const std::int64_t first_ = now();
    mutable std::mutex mutex_;
    std::array<Minute, minutes> ring_;  // guarded by mutex_; a minute lies at its number modulo `minutes`
};

}  // namespace gateway

#endif
