// Reduces all items to those that one list can hold.
#ifndef KATLIST_RESOLVE_H
#define KATLIST_RESOLVE_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Build.h"
#include "ItemStore.h"
#include "Shared.h"

namespace katlist {

// Hosts that are not to be listed: true if the hosts below them are not, either.
using Exceptions = std::map<std::pair<std::uint8_t, std::string>, bool>;  // by category and host

struct Resolved {
    std::uint64_t excepted = 0;    // removed by an exception
    std::uint64_t duplicates = 0;  // same item, same category
    std::uint64_t conflicts = 0;   // same item, another category
    std::uint64_t below = 0;       // begins with an item of the same category
    std::uint64_t belowOther = 0;  // begins with an item of another category
    std::uint64_t nestedKept = 0;  // of those, the ones that stay in the list
};

// Each function works on the items in *items; removeNested() needs them sorted and without duplicates.
class Resolver {
public:
    // The arguments must outlive the Resolver. It prints up to `show` notes of each kind.
    Resolver(ItemStore* items, const std::vector<Source>& sources, const tools::CategoryNames& names,
             std::uint64_t show)
        : items_(items), sources_(sources), names_(names), show_(show) {}

    void removeExcepted(const Exceptions& exceptions);
    // Sorts the items. A host in two categories keeps the one that is first in the file of names; a conflict
    // between two items that were read is shown.
    void removeDuplicates();
    // katd finds prefixes by one binary search, which is reliable only if no item begins with another one: a
    // longer item can lead the search past its prefix. Throws Failure for OnNested::fail, after showing all.
    void removeNested(OnNested onNested);

    const Resolved& result() const { return result_; }

private:
    std::string describe(const ItemStore::Record& record) const;
    bool isExcepted(const ItemStore::Record& record, const Exceptions& exceptions) const;

    ItemStore* const items_;
    const std::vector<Source>& sources_;
    const tools::CategoryNames& names_;
    const std::uint64_t show_;
    Resolved result_;
};

}  // namespace katlist

#endif
