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

constexpr std::uint32_t formatVersion = 2;  // a file of version 1 has neither filters nor recent records
constexpr char formatMagic[] = "katd-catalogue";
constexpr std::size_t maxKey = 511;              // LMDB's own limit
constexpr std::size_t maxEntryCategories = 256;  // a reply of katd holds no more; of pairs likewise

// The first byte of a key.
enum Record : char {
    headerRecord = 1,
    sourceRecord = 2,     // then the number of the source, high byte first
    categoryRecord = 3,   // then the number of the category, high byte first; the value is its name
    memoryRecord = 4,     // what a writer wants to know of the last change, see Update::memory()
    hostFilter = 5,       // the hosts of all host records: the words of a HostFilter
    recentFilter = 6,     // the same for the recent ones; it is there if any record is recent
    hostRecord = 'h',     // then Url::host
    networkRecord = 'n',  // then '4' or '6', the address, the prefix length
    pathRecord = 'p',     // then the host, or a zero byte, '4' or '6' and the address; the port; the path
};

// A change is kept in a recent record, whose key begins with a capital, until many have come together. The
// record replaces that with the same key otherwise; one without flags says that there is none. A host has a
// recent record if one of its paths has.
constexpr char recordCase = 0x20;
inline char recordOf(std::string_view key) {
    return static_cast<char>(key[0] | recordCase);
}
inline bool isRecent(std::string_view key) {
    return (key[0] & recordCase) == 0;
}
// No key of a record of this kind is less.
constexpr std::string_view firstRecent = "H";
constexpr std::string_view firstLasting = "h";
inline std::string withCase(std::string_view key, bool recent) {
    std::string result(key);
    result[0] = static_cast<char>(recent ? key[0] & ~recordCase : key[0] | recordCase);
    return result;
}

// The low bits of a value's first byte. The high bits are the number of ancestors; if they are 15, the number
// is in the next byte.
using Flags = unsigned char;
constexpr Flags isEntry = 1;  // without it the record exists only for the paths below it
constexpr Flags isInstead = 2;
constexpr Flags hasPaths = 4;  // this host has path records without a port
constexpr Flags hasPorts = 8;
constexpr unsigned ancestorShift = 4;
constexpr unsigned manyAncestors = 15;

constexpr unsigned bytesPerAncestor(char record) {
    return (record | recordCase) == pathRecord ? 2 : 1;
}

// One category of an entry and the source that it came from.
struct Pair {
    std::uint16_t category;
    std::uint16_t source;

    bool operator==(const Pair& other) const { return category == other.category && source == other.source; }
};
static_assert(sizeof(Pair) == 4, "the file stores pairs in this layout");

// A parsed value; points into the record.
struct Value {
    unsigned char flags = 0;
    unsigned ancestors = 0;
    unsigned ancestorSize = 1;               // bytes per ancestor
    const unsigned char* lengths = nullptr;  // the ancestors' marks, shortest first; see ancestor()
    const unsigned char* pairs = nullptr;
    std::size_t pairCount = 0;

    // False if the bytes are not a value.
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
        ancestorSize = bytesPerAncestor(record);
        lengths = bytes;
        const std::size_t lengthsSize = std::size_t{ancestors} * ancestorSize;
        if (static_cast<std::size_t>(end - bytes) < lengthsSize) return false;
        pairs = bytes + lengthsSize;
        const auto left = static_cast<std::size_t>(end - pairs);
        pairCount = left / sizeof(Pair);
        return left % sizeof(Pair) == 0 && pairCount <= maxEntryCategories;
    }

    // The mark of ancestor i: the length of its key or, in a network record, its prefix length.
    unsigned ancestor(unsigned i) const {
        return ancestorSize == 1
                   ? lengths[i]
                   : lengths[std::size_t{2} * i] | (unsigned{lengths[std::size_t{2} * i + 1]} << 8U);
    }

    Pair pair(std::size_t i) const {
        Pair result{};
        std::memcpy(&result, pairs + i * sizeof result, sizeof result);
        return result;
    }
};

// Separators of the path in a key. They sort before all other bytes, so that the entries that an entry covers
// follow it directly.
constexpr char keySlash = 1;      // between segments
constexpr char keyQuestion = 2;   // before the query
constexpr char keyAmpersand = 3;  // in the query
constexpr char keyPort = ':';     // before the port, which is followed by the end or a separator

// Whether the first `size` bytes of a path record's key end at the end of a segment or parameter.
inline bool endsAtBoundary(const char* key, std::size_t keySize, std::size_t size) {
    return size == keySize || (size < keySize && static_cast<unsigned char>(key[size]) <= keyAmpersand);
}

// Copies `size` bytes of a path into a key and replaces its separators by those above.
void encodePath(const char* path, std::size_t size, char* key);

// Whether the entry `above` covers everything that the entry `below` covers. False if they are in different
// trees (hosts, networks, the paths of one host and port; recent ones and others) or equal.
bool isAncestor(std::string_view above, std::string_view below);
// The number that stands for this key in the values of its descendants; see Value::ancestor().
unsigned ancestorMark(std::string_view key);

// The key of the entry's host or network.
std::string hostKey(const Url& entry);
// The key of the entry's path; port 0 means all ports.
std::string pathKey(const Url& entry, unsigned port);
// The offset of the path in the key of a path record; 0 if it is not such a key.
std::size_t pathBase(std::string_view key);

// The key of a host, network or path record in readable form: "a.example", "203.0.113.0/24",
// "a.example:8080/ads".
std::string keyText(std::string_view key);

}  // namespace catalog

#endif
