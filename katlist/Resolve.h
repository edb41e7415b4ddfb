// Leaves of all items those that a list can hold side by side.
#ifndef KATLIST_RESOLVE_H
#define KATLIST_RESOLVE_H

#include <cstdint>
#include <string>
#include <vector>

#include "Build.h"
#include "ItemStore.h"
#include "Shared.h"

namespace katlist {

struct Resolved {
    std::uint64_t duplicates = 0;  // same item, same category
    std::uint64_t conflicts = 0;   // same item, another category: the first one stays
    std::uint64_t below = 0;       // begins with an item of the same category
    std::uint64_t belowOther = 0;  // begins with an item of another category
    std::uint64_t nestedKept = 0;  // of those, the ones that stay in the list
};

// Sorted items in, each once. A conflict between two that were read is shown with both places.
void removeDuplicates(ItemStore* items, const std::vector<Source>& sources, std::uint64_t show,
                      Resolved* resolved);

// Sorted items in, each once. katd looks for a stored prefix by one binary search, which turns away from a
// prefix at an item below it. It is certain to find what there is to find only while no item begins with
// another. Throws Failure for OnNested::fail, after all were shown.
void removeNested(ItemStore* items, const std::vector<Source>& sources, OnNested onNested, std::uint64_t show,
                  Resolved* resolved);

}  // namespace katlist

#endif
