// katlist stat: size of a list by category.
#ifndef KATLIST_STAT_H
#define KATLIST_STAT_H

#include <string>

namespace katlist {

struct StatOptions {
    std::string file;
    std::string categories;  // path of the names of the categories; empty: none
    bool json = false;
};

// Prints items and the memory of their texts and entries by category, as katd holds them. Throws Failure.
void stat(const StatOptions& options);

}  // namespace katlist

#endif
