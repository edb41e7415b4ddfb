#include "Names.h"

namespace bench {

namespace {

constexpr char CONSONANTS[] = "bdfgklmnprstvz";
constexpr char VOWELS[] = "aeiou";
constexpr unsigned SYLLABLES = 70;
static_assert((sizeof(CONSONANTS) - 1) * (sizeof(VOWELS) - 1) == SYLLABLES, "every pair is a syllable");

constexpr const char* SUBDOMAINS[] = {"www.", "news.", "shop.", "m.", "img."};
constexpr const char* ENDINGS[] = {".test", ".test", ".example"};  // none is a prefix of another

void appendSyllable(unsigned index, std::string* to) {
    *to += CONSONANTS[index / 5];
    *to += VOWELS[index % 5];
}

// Extracts a number below `range` from the bits.
unsigned take(std::uint64_t* bits, unsigned range) {
    const unsigned taken = static_cast<unsigned>(*bits % range);
    *bits /= range;
    return taken;
}

// A pseudo-random permutation of the numbers below COUNT: four Feistel rounds on two digits of base 4900.
std::uint32_t shuffled(std::uint32_t number, std::uint64_t seed) {
    constexpr std::uint32_t BASE = SYLLABLES * SYLLABLES;
    std::uint32_t high = number / BASE;
    std::uint32_t low = number % BASE;
    for (unsigned round = 0; round < 4; ++round) {
        const std::uint32_t shift =
            static_cast<std::uint32_t>(Names::mix(seed * 31 + low * 4ULL + round) % BASE);
        const std::uint32_t next = (high + shift) % BASE;
        high = low;
        low = next;
    }
    return high * BASE + low;
}

}  // namespace

// splitmix64
std::uint64_t Names::mix(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15U;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

void Names::appendHost(std::uint32_t number, std::string* to) const {
    std::uint64_t bits = mix(number + (seed_ << 32));
    if (take(&bits, 5) == 0) *to += SUBDOMAINS[take(&bits, 5)];
    // Four syllables encode the number; further ones and the ending are for looks.
    std::uint32_t own = shuffled(number, seed_);
    for (unsigned i = 0; i < 4; ++i, own /= SYLLABLES)
        appendSyllable(own % SYLLABLES, to);
    for (unsigned more = take(&bits, 3); more > 0; --more)
        appendSyllable(take(&bits, SYLLABLES), to);
    *to += ENDINGS[take(&bits, 3)];
}

void Names::appendPath(std::uint32_t number, std::string* to) const {
    std::uint64_t bits = mix(~static_cast<std::uint64_t>(number) ^ seed_);
    *to += '/';
    for (unsigned left = 2 + take(&bits, 3); left > 0; --left)
        appendSyllable(take(&bits, SYLLABLES), to);
}

}  // namespace bench
