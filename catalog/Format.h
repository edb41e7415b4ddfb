// Keys and values of the catalogue's records; docs/catalog-format.md describes them.
#ifndef KATD_CATALOG_FORMAT_H
#define KATD_CATALOG_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "Url.h"

namespace catalog {

constexpr std::uint32_t formatVersion = 1;
constexpr char formatMagic[] = "katd-catalogue";
constexpr std::size_t maxKey = 511;              // LMDB's own limit
constexpr std::size_t maxEntryCategories = 256;  // a reply of katd holds no more

// The first byte of a key.
enum Record : char {
    headerRecord = 1,
    sourceRecord = 2,     // and the source's number, high byte first
    categoryRecord = 3,   // and the category's number, high byte first: its name
    hostRecord = 'h',     // and the host's labels, see Url::host
    networkRecord = 'n',  // and '4' or '6', the address, the prefix length
    pathRecord = 'p',  // and a host, or a zero byte, '4' or '6' and an address; a port (see below); the path
};

// Bits of a value's first byte. The rest of it is the number of ancestors, 15 meaning that the next byte has
// it.
using Flags = unsigned char;
constexpr Flags isEntry = 1;  // not only there because of what lies below it
constexpr Flags isInstead = 2;
constexpr Flags hasPaths = 4;  // there are path records without a port for this host
constexpr Flags hasPorts = 8;
constexpr unsigned ancestorShift = 4;
constexpr unsigned manyAncestors = 15;

// One category of an entry and the source that it came from.
struct Pair {
    std::uint16_t category;
    std::uint16_t source;
};
static_assert(sizeof(Pair) == 4, "pairs lie in the file as they are");

// A value, taken apart; points into it.
struct Value {
    unsigned char flags = 0;
    unsigned ancestors = 0;
    unsigned ancestorSize = 1;               // bytes of each: 2 in a path record
    const unsigned char* lengths = nullptr;  // of the ancestors, shortest first
    const unsigned char* pairs = nullptr;
    std::size_t pairCount = 0;

    // False when the bytes are no value.
    bool parse(const void* data, std::size_t size, char record) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        const auto* const end = bytes + size;
        if (size == 0) return false;
        flags = *bytes & ((1U << ancestorShift) - 1);
        ancestors = *bytes++ >> ancestorShift;
        if (ancestors == manyAncestors) {
            if (bytes == end) return false;
            ancestors = *bytes++;
        }
        ancestorSize = record == pathRecord ? 2 : 1;
        lengths = bytes;
        const std::size_t lengthsSize = std::size_t{ancestors} * ancestorSize;
        if (static_cast<std::size_t>(end - bytes) < lengthsSize) return false;
        pairs = bytes + lengthsSize;
        const auto left = static_cast<std::size_t>(end - pairs);
        pairCount = left / sizeof(Pair);
        return left % sizeof(Pair) == 0 && pairCount <= maxEntryCategories;
    }

    // In a host or path record the length of the ancestor's key, in a network record its prefix length.
    unsigned ancestor(unsigned i) const {
        return ancestorSize == 1 ? lengths[i] : lengths[std::size_t{2} * i] | (unsigned{lengths[std::size_t{2} * i + 1]} << 8U);
    }

    Pair pair(std::size_t i) const {
        Pair result{};
        std::memcpy(&result, pairs + i * sizeof result, sizeof result);
        return result;
    }
};

// Separators of the path in a key. They sort before all other bytes, so that what an entry covers lies right
// behind it.
constexpr char keySlash = 1;      // between segments
constexpr char keyQuestion = 2;   // before the query
constexpr char keyAmpersand = 3;  // in the query
constexpr char keyPort = ':';     // before the port; a port is always followed by the end or a separator

// Whether the first `size` bytes of the path record's key `key` end where a part of it does.
inline bool endsAtBoundary(const char* key, std::size_t keySize, std::size_t size) {
    return size == keySize || (size < keySize && static_cast<unsigned char>(key[size]) <= keyAmpersand);
}

// Copies a path's first `size` bytes into a key, with the separators above.
void encodePath(const char* path, std::size_t size, char* key);

// Whether an entry with the key `above` covers all that one with the key `below` does. Of one tree only:
// hosts, networks, or the paths of one host and port. Not for equal keys.
bool isAncestor(std::string_view above, std::string_view below);
// How a record of the key's tree names it as an ancestor.
unsigned ancestorMark(std::string_view key);

// The keys of an entry's own record and of its host's. A network's host record is that of the network.
std::string hostKey(const Url& entry);
// `port` 0: for all ports.
std::string pathKey(const Url& entry, unsigned port);
// The length of a path record's key before the path, or 0 if that is none; `size` is all of the key's.
std::size_t pathBase(std::string_view key);

// What a key of a host, network or path record says, for people: "a.example", "203.0.113.0/24",
// "a.example:8080/ads".
std::string keyText(std::string_view key);

}  // namespace catalog

#endif
