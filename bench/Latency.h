#ifndef KATD_BENCH_LATENCY_H
#define KATD_BENCH_LATENCY_H

#include <cstdint>

namespace bench {

// A histogram of latencies; the width of a class is at most 1/32 of its value. Allocates nothing.
class Latency {
public:
    void add(std::uint64_t nanoseconds) {
        ++counts_[classOf(nanoseconds)];
        ++total_;
    }
    void clear() { *this = Latency(); }
    std::uint64_t total() const { return total_; }

    // The latency in microseconds below which this share of them lies; 0 without any.
    double percentile(double share) const {
        const std::uint64_t rank = static_cast<std::uint64_t>(share * static_cast<double>(total_));
        std::uint64_t seen = 0;
        for (unsigned i = 0; i < CLASSES; ++i) {
            seen += counts_[i];
            if (counts_[i] != 0 && seen >= rank) return static_cast<double>(lowest(i + 1)) / 1000;
        }
        return 0;
    }

private:
    static constexpr unsigned BITS = 5;                    // log2 of the classes per power of two
    static constexpr unsigned CLASSES = (1 + 36) << BITS;  // 36 bits more: up to minutes

    static unsigned classOf(std::uint64_t value) {
        if (value >> BITS == 0) return static_cast<unsigned>(value);
        const unsigned shift = 63 - static_cast<unsigned>(__builtin_clzll(value)) - BITS;
        const unsigned index = (shift << BITS) + static_cast<unsigned>(value >> shift);
        return index < CLASSES ? index : CLASSES - 1;
    }
    static std::uint64_t lowest(unsigned index) {
        if (index >> BITS <= 1) return index;
        const unsigned shift = (index >> BITS) - 1;
        return static_cast<std::uint64_t>(index - (shift << BITS)) << shift;
    }

    std::uint64_t counts_[CLASSES] = {};
    std::uint64_t total_ = 0;
};

}  // namespace bench

#endif
