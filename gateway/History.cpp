#include "History.h"

#include <algorithm>

namespace gateway {

double History::Minute::latencySec(double q) const {
    std::uint64_t total = 0;
    for (const std::uint32_t count : latencies)
        total += count;
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < latencies.size(); ++i) {
        below += latencies[i];
        if (below > 0 && static_cast<double>(below) >= q * static_cast<double>(total))
            return static_cast<double>(std::uint64_t{1} << i) * 1e-6;
    }
    return 0;
}

void History::add(const katclient_answer& answer, std::chrono::nanoseconds time) {
    const std::int64_t number = now();
    const auto micros = static_cast<std::uint64_t>(std::max<std::int64_t>(time.count() / 1000, 0));
    std::size_t bucket = 0;
    while (bucket + 1 < std::tuple_size<decltype(Minute::latencies)>::value && (micros >> bucket) != 0)
        ++bucket;
    const std::lock_guard<std::mutex> guard(mutex_);
    Minute& minute = ring_[static_cast<std::size_t>(number) % minutes];
    if (minute.number != number) {
        minute = Minute();
        minute.number = number;
    }
    ++minute.questions;
    if (answer.status != KATCLIENT_OK) {
        ++minute.failed;
        return;
    }
    ++minute.latencies[bucket];
    if (answer.known != 0) ++minute.known;
    for (unsigned i = 0; i < answer.count; ++i)
        ++minute.categories[answer.categories[i]];
}

std::vector<History::Minute> History::last() const {
    const std::int64_t present = now();
    std::vector<Minute> result(minutes);
    const std::lock_guard<std::mutex> guard(mutex_);
    for (std::size_t i = 0; i < minutes; ++i) {
        const std::int64_t number = present - static_cast<std::int64_t>(minutes - 1 - i);
        const Minute& minute = ring_[static_cast<std::size_t>(number) % minutes];
        if (minute.number == number) result[i] = minute;
        if (number >= first_) result[i].number = number;
    }
    return result;
}

std::int64_t History::now() {
    return std::chrono::duration_cast<std::chrono::minutes>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace gateway
