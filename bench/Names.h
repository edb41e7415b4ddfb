#ifndef KATD_BENCH_NAMES_H
#define KATD_BENCH_NAMES_H

#include <cstdint>
#include <string>

namespace bench {

// Names that look like those of real lists, derived from a number and a seed. No host is a prefix of another.
class Names {
public:
    explicit Names(std::uint64_t seed) : seed_(seed) {}

    static constexpr std::uint32_t COUNT = 70U * 70 * 70 * 70;  // numbers below this have different names

    // A host of 13 to 25 characters, mostly about 17. REQUIRES: number < COUNT.
    void appendHost(std::uint32_t number, std::string* to) const;
    // A path for that host, starting with "/".
    void appendPath(std::uint32_t number, std::string* to) const;

    // Uniformly distributed numbers, derived from a seed.
    static std::uint64_t mix(std::uint64_t value);

private:
    const std::uint64_t seed_;
};

}  // namespace bench

#endif
