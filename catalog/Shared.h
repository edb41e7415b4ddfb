// Catalogue entries in a store that several machines share: their keys, their encoding, and how they are
// matched. docs/catalog-format.md describes the contents of the store. Nothing here connects to it.
#ifndef KATD_CATALOG_SHARED_H
#define KATD_CATALOG_SHARED_H

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

// The value of the meta record. A version is a word without blanks.
std::string sharedMeta(std::string_view version);
// The version that a meta record names; empty if it is not one of this format.
std::string_view sharedVersion(std::string_view meta);

// Where the store keeps an entry of the catalogue: the key of its group, and what distinguishes it there.
struct SharedPlace {
    std::string group;
    std::uint16_t port = 0;  // 0: all ports
    std::string rest;        // what follows the group's key in the encoded path
};
// `key` is that of the entry's record.
SharedPlace sharedPlace(std::string_view key);
// The key of the group that holds the host of a path record's key.
std::string sharedHostGroup(std::string_view pathKey);

// One entry of a group.
struct SharedEntry {
    std::uint16_t port = 0;
    std::string rest;
    bool instead = false;
    std::vector<std::uint16_t> categories;  // at most maxEntryCategories
};

// The value of a group. `withPaths` marks the group of a host that also has groups of paths. The order of the
// entries makes no difference. REQUIRES: no two entries have the same port and rest.
std::string encodeGroup(std::vector<SharedEntry> entries, bool withPaths);
// Whether the value is one that encodeGroup() can make. If not, treat it as absent.
bool isGroup(std::string_view value);
// REQUIRES: isGroup(value).
bool groupHasPaths(std::string_view value);

// A question to the store about one URL.
class SharedQuestion {
public:
    // The groups of one host or network that may cover the URL.
    struct Candidate {
        std::string host;
        std::string path;  // needed only if the host's group has paths; empty if it cannot have this path
    };

    explicit SharedQuestion(const Url& url);

    // The most specific one first.
    const std::vector<Candidate>& candidates() const { return candidates_; }

    // Adds the categories of the entries that cover the URL. The values are those of a candidate's groups,
    // empty if absent or not needed. False if an entry marked "instead" ends the union: the candidates after
    // this one do not count. REQUIRES: each value is empty or isGroup(value).
    bool add(std::string_view hostValue, std::string_view pathValue, Answer* answer) const;

private:
    bool addGroup(std::string_view value, std::string_view rest, Answer* answer) const;

    std::uint16_t port_;
    std::string path_;            // encoded, and cut where no entry can be longer
    std::size_t segmentEnd_ = 0;  // of the path's first segment
    std::vector<Candidate> candidates_;
};

}  // namespace catalog

#endif
