// katlist check: reports what is wrong with list files.
#ifndef KATLIST_CHECK_H
#define KATLIST_CHECK_H

#include <cstdint>
#include <string>
#include <vector>

#include "ItemText.h"
#include "Shared.h"

namespace katlist {

enum class KindOption { guess, urls, domains };

struct CheckOptions {
    std::vector<std::string> files;
    KindOption kind = KindOption::guess;  // guess: a list with a slash in an item is one of URLs
    std::uint64_t show = 20;              // findings of each file
};

// Prints the findings and a summary line for each file. Returns the worst status of all files. A file that
// cannot be read is reported, and the others are still checked.
ExitStatus check(const CheckOptions& options);

}  // namespace katlist

#endif
