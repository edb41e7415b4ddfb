// A set of hosts in a few bits each: a Bloom filter.
#ifndef KATD_CATALOG_HOSTFILTER_H
#define KATD_CATALOG_HOSTFILTER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace catalog {

// The hash of a host as in Url::host, byte by byte, so that one pass has the hashes of all names above it
// too.
class HostHash {
public:
    void add(char byte) { value_ = (value_ ^ static_cast<unsigned char>(byte)) * 0x01000193U; }
    std::uint32_t value() const { return value_; }
    static std::uint32_t of(std::string_view host) {
        HostHash hash;
        for (const char byte : host)
            hash.add(byte);
        return hash.value();
    }

private:
    std::uint32_t value_ = 0x811c9dc5U;
};

// The bits of a host are all in one word. The top bit of each word is set, so that overwritten or missing
// parts are noticed.
class HostFilter {
public:
    enum Answer {
        no,
        perhaps,  // one host in a hundred that is not in the set has this answer
        damaged,
    };

    // Null words: there is no filter.
    explicit HostFilter(const void* words = nullptr, std::size_t size = 0)
        : words_(static_cast<const char*>(words)), count_(size / sizeof(std::uint64_t)) {}

    bool exists() const { return count_ > 0; }
    void prefetch(std::uint32_t hash) const { __builtin_prefetch(words_ + place(hash, count_) * wordSize); }
    Answer has(std::uint32_t hash) const {
        std::uint64_t word = 0;
        std::memcpy(&word, words_ + place(hash, count_) * wordSize, sizeof word);
        const std::uint64_t wanted = bits(hash);
        return (word & wanted) == wanted ? perhaps : (word & topBit) != 0 ? no : damaged;
    }

    static constexpr std::uint64_t topBit = std::uint64_t{1} << 63U;
    static std::uint64_t bits(std::uint32_t hash) {
        constexpr std::uint64_t one = 1;
        const std::uint64_t mixed = hash * 0x9e3779b97f4a7c15U;
        return topBit | one << (mixed >> 58U) | one << (mixed >> 52U & 63U) | one << (mixed >> 46U & 63U) |
               one << (mixed >> 40U & 63U);
    }
    static std::size_t place(std::uint32_t hash, std::size_t words) {
        const std::uint32_t mixed = (hash ^ hash >> 15U) * 0x85ebca6bU;
        return static_cast<std::size_t>(std::uint64_t{mixed ^ mixed >> 13U} * words >> 32U);
    }

private:
    static constexpr std::size_t wordSize = sizeof(std::uint64_t);

    const char* words_;  // not aligned
    std::size_t count_;
};

// Makes the words of a filter.
class HostFilterWords {
public:
    // For about this many hosts: more make more answers `perhaps`.
    explicit HostFilterWords(std::uint64_t hosts)
        : words_(static_cast<std::size_t>(hosts / hostsPerWord) + 1, HostFilter::topBit) {}

    void add(const std::vector<std::uint32_t>& hashes) {
        constexpr std::size_t ahead = 16;
        for (std::size_t i = 0; i < hashes.size(); ++i) {
            if (hashes.size() - i > ahead) __builtin_prefetch(&word(hashes[i + ahead]), 1);
            word(hashes[i]) |= HostFilter::bits(hashes[i]);
        }
    }
    std::string_view bytes() const {
        return {reinterpret_cast<const char*>(words_.data()), words_.size() * sizeof words_[0]};
    }

private:
    static constexpr unsigned hostsPerWord = 5;

    std::uint64_t& word(std::uint32_t hash) { return words_[HostFilter::place(hash, words_.size())]; }

    std::vector<std::uint64_t> words_;
};

}  // namespace catalog

#endif
