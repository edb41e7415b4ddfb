// What the arguments of a build name: files, folders of categories, standard input.
#ifndef KATLIST_INPUTS_H
#define KATLIST_INPUTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Console.h"
#include "ItemText.h"
#include "Mapping.h"

namespace katlist {

struct Source {
    std::string path;       // "-" is standard input
    std::int32_t category;  // of lines that name none; -1: such lines are bad ones
};

// The files to read, in the order of the arguments; those of a folder in alphabetical order.
// An argument is a file, "-", NUMBER=FILE, or a folder, whose subfolders are categories that hold a file
// "urls" or "domains", at any depth. `category` goes for what neither NUMBER nor the mapping gives one; with
// a mapping that is not empty, a folder without a name in it is left out, with a note. Throws Failure: what
// does not exist, a folder that holds no such file, or without any category.
std::vector<Source> findSources(const std::vector<std::string>& arguments, Kind kind, std::int32_t category,
                                const Mapping& mapping, Notes* skipped);

}  // namespace katlist

#endif
