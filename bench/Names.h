#ifndef KATD_BENCH_NAMES_H
#define KATD_BENCH_NAMES_H

#include <cstdint>
#include <string>

namespace bench {

// Names that look like those of real lists, told by a number and a seed. No host is the beginning of another.
class Names {
public:
    explicit Names(std::uint64_t seed) : seed_(seed) {}

    static constexpr std::uint32_t COUNT = 70U * 70 * 70 * 70;  // numbers below this have names of their own

    // A host of 13 to 25 characters, mostly about 17. REQUIRES: number < COUNT.
    void appendHost(std::uint32_t number, std::string* to) const;
    // A path that belongs to it, from its "/" on.
    void appendPath(std::uint32_t number, std::string* to) const;

    // Numbers that a seed tells, each as likely as the others.
    static std::uint64_t mix(std::uint64_t value);

private:
    const std::uint64_t seed_;
};

}  // namespace bench

#endif
