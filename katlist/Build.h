// katlist build: makes a list file of katd from published lists.
#ifndef KATLIST_BUILD_H
#define KATLIST_BUILD_H

#include <cstdint>
#include <string>
#include <vector>

#include "ItemText.h"

namespace katlist {

enum class OnNested { keep, drop, fail };    // an item below another one of a different category
enum class BareHosts { keep, slash, skip };  // a host without a path in a list of URLs

struct BuildOptions {
    Kind kind = Kind::urls;
    std::string output;
    std::vector<std::string> inputs;
    std::string map;             // path; empty: none
    std::int32_t category = -1;  // of lines that name none; -1: not given
    OnNested onNested = OnNested::drop;
    BareHosts bareHosts = BareHosts::keep;
    bool withWww = false;
    bool strict = false;
    bool quiet = false;
    std::uint64_t show = 10;  // notes of each kind
};

// Reads all inputs, then writes the list and a summary. Nothing is written unless it returns. Throws Failure.
void build(const BuildOptions& options);

}  // namespace katlist

#endif
