// Catalogue entries in a store that several machines share: their keys, their encoding, and how they are
// matched. docs/catalog-format.md describes the contents of the store. Nothing here connects to it.
#ifndef KATD_CATALOG_SHARED_H
#define KATD_CATALOG_SHARED_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Catalog.h"
#include "Format.h"
#include "Url.h"

namespace catalog {

// All keys begin with this. The keys of groups continue with the type of a catalogue record.
constexpr std::string_view sharedPrefix = "katd:";
// The key of the record that says which format and version the store holds.
constexpr std::string_view sharedMetaKey = "katd:catalogue";
// Exists while a push runs; expires.
constexpr std::string_view sharedLockKey = "katd:pushing";
// Exists from a push's first change to its end.
constexpr std::string_view sharedUnfinishedKey = "katd:unfinished";

// The value of the meta record. A version is a word without blanks.
std::string sharedMeta(std::string_view version);
// The version that a meta record names; empty if it is not one of this format.
std::string_view sharedVersion(std::string_view meta);

// Entries are kept in groups of three levels: those of a host or network itself, those of a host and one part
// of a path, and those of a host and the same first two parts. A part is a segment, or a parameter of the
// query.
constexpr std::size_t sharedLevels = 3;

// Where the store keeps an entry of the catalogue: the key of its group, and what distinguishes it there.
struct SharedPlace {
    std::string group;
    std::vector<std::string> above;  // groups that must exist and be marked as having groups below
    std::uint16_t port = 0;          // 0: all ports
    std::string rest;                // what follows the first two parts of the encoded path
};
// `key` is that of the entry's record.
SharedPlace sharedPlace(std::string_view key);

// One entry of a group.
struct SharedEntry {
    std::uint16_t port = 0;
    std::string rest;
    bool instead = false;
    std::vector<std::uint16_t> categories;  // at most maxEntryCategories
};

// The value of a group. `hasBelow` marks a group that has groups of the next level below it. The order of the
// entries makes no difference. REQUIRES: no two entries have the same port and rest.
std::string encodeGroup(std::vector<SharedEntry> entries, bool hasBelow);
// The entries of a group. REQUIRES: isGroup(value), or it is empty.
std::vector<SharedEntry> decodeGroup(std::string_view value);
// The key that an entry of the group has in a catalogue.
std::string sharedEntryKey(std::string_view group, const SharedEntry& entry);
// Whether the value is one that encodeGroup() can make. If not, treat it as absent.
bool isGroup(std::string_view value);
// REQUIRES: isGroup(value), or it is empty.
bool groupHasBelow(std::string_view value);

// A question to the store about one URL.
class SharedQuestion {
public:
    using Values = std::array<std::string_view, sharedLevels>;

    explicit SharedQuestion(const Url& url);

    // The number of hosts or networks that may cover the URL: the candidates, the most specific one first.
    std::size_t size() const { return isName_ ? labels_.size() : 8 * host_.size() + 1; }
    // The key of a candidate's group; empty if there cannot be such a group. A group is needed only if the
    // one of the level before it has groups below.
    std::string key(std::size_t candidate, std::size_t level) const;

    // Whether an entry of a group of that level covers the URL.
    bool isCoveredBy(std::size_t level, std::uint16_t port, std::string_view rest) const;
    // Adds the categories of the entries that cover the URL. The values are those of a candidate's groups,
    // empty if absent or not needed. False if an entry marked "instead" ends the union: the candidates after
    // this one do not count. REQUIRES: each value is empty or isGroup(value).
    bool add(const Values& values, Answer* answer) const;

private:
    const std::uint16_t port_;
    const bool isName_;
    const std::string host_;
    std::vector<unsigned char> labels_;             // of a name: where each candidate's part of host_ ends
    std::string path_;                              // encoded, and cut where no entry can be longer
    std::array<std::size_t, sharedLevels> ends_{};  // where the path of each level's group ends
};

}  // namespace catalog

#endif
