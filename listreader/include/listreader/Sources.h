// The inputs that a command line names: files, folders of categories, standard input.
#ifndef LISTREADER_SOURCES_H
#define LISTREADER_SOURCES_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "listreader/Console.h"
#include "tools/CategoryNames.h"

namespace listreader {

struct Source {
    std::string path;       // "-" is standard input
    std::int32_t category;  // of lines that name none; -1: such lines are bad
};

// Which files of a category folder are read: "urls", "domains" or both.
enum class Wanted { urls, domains, both };

struct CategoryRules {
    // Number of a category name, or -1; empty if there are no names.
    std::function<std::int32_t(std::string_view)> numberOf;
    std::int32_t highest = 255;   // the highest number, 0 being the lowest
    std::int32_t otherwise = -1;  // of a source that gets no category otherwise
};

// The sources in the order of the arguments; those of a folder in alphabetical order of their categories.
// An argument is a file, "-", CATEGORY=FILE, CATEGORY=FOLDER, or a folder whose subfolders, at any depth, are
// categories that hold a file "urls" or "domains". CATEGORY is a number or a name. With names, a folder that
// has none is left out, with a note. Throws Failure for a folder without such a file, or without a category.
std::vector<Source> findSources(const std::vector<std::string>& arguments, Wanted wanted,
                                const CategoryRules& rules, Notes* skipped);

// Reads a file of category names. Throws Failure if it cannot be read or a line is wrong.
void readNames(const std::string& path, tools::CategoryNames* names);

// A category from 0 to `highest` in decimal digits, blanks around them allowed; -1 for anything else.
std::int32_t toCategory(std::string_view text, std::int32_t highest);

}  // namespace listreader

#endif
