// katlist build: makes a list file of katd from published lists.
#ifndef KATLIST_BUILD_H
#define KATLIST_BUILD_H

#include <cstdint>
#include <string>
#include <vector>

#include "ItemText.h"

namespace katlist {

enum class OnNested { keep, drop, fail };    // an item that begins with one of a different category
enum class BareHosts { keep, slash, skip };  // a host without a path in a list of URLs

struct BuildOptions {
    Kind kind = Kind::urls;
    std::string output;
    std::vector<std::string> inputs;
    std::string categories;  // path of the names of the categories; empty: none
    std::string category;    // of lines that name none, a number or a name; empty: not given
    OnNested onNested = OnNested::drop;
    BareHosts bareHosts = BareHosts::keep;
    bool withWww = false;
    bool strict = false;
    bool quiet = false;
    std::uint64_t show = 10;        // notes of each kind
    std::uint64_t minItems = 0;     // a smaller list is refused
    std::uint32_t maxShrink = 100;  // per cent that the list may be smaller than the one it replaces
};

// Reads all inputs, writes the list and prints a summary. Throws Failure; the old list is unchanged then.
void build(const BuildOptions& options);

}  // namespace katlist

#endif
