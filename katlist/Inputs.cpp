#include "Inputs.h"

#include <filesystem>
#include <map>
#include <system_error>

#include "ExitStatus.h"

namespace katlist {

namespace fs = std::filesystem;

namespace {

bool isFolder(const std::string& path) {
    std::error_code ignored;
    return fs::is_directory(path, ignored);
}

// NUMBER=FILE. A file of that very name is meant where there is one.
bool splitCategory(const std::string& argument, Source* source) {
    const std::size_t sign = argument.find('=');
    std::error_code ignored;
    if (sign == 0 || sign > 3 || sign == std::string::npos || fs::exists(argument, ignored)) return false;
    if (argument.find_first_not_of("0123456789") != sign) return false;
    source->category = toCategory(argument.substr(0, sign));
    source->path = argument.substr(sign + 1);
    if (source->category >= 0) return true;
    throw Failure(badUsage, "the category of " + printable(argument) + " is a number from 0 to 255");
}

// The category folders: those that hold a file of the wanted name, the folder itself or below it at any
// depth. Each has its name as in the mapping: the path below the folder, or the folder's own name.
std::multimap<std::string, fs::path> categoriesOf(const fs::path& folder, const char* file) {
    std::multimap<std::string, fs::path> found;
    std::error_code ignored;
    if (fs::is_regular_file(folder / file, ignored)) {
        const fs::path whole = fs::absolute(folder / ".", ignored).lexically_normal();
        found.emplace(whole.parent_path().filename().string(), folder);
    }
    std::error_code error;
    auto entry = fs::recursive_directory_iterator(folder, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        if (fs::is_directory(entry->path(), ignored) && fs::is_regular_file(entry->path() / file, ignored))
            found.emplace(entry->path().lexically_relative(folder).string(), entry->path());
    }
    if (error) throw fileFailure("read", folder.string(), error.value());
    return found;
}

void addFolder(const std::string& folder, Kind kind, std::int32_t category, const Mapping& mapping,
               std::vector<Source>* sources, Notes* skipped) {
    const char* file = kind == Kind::urls ? "urls" : "domains";
    if (mapping.all().empty() && category < 0) {
        throw Failure(badUsage,
                      folder +
                          " is a folder: name the file with the numbers of its categories by --map, "
                          "or one number for all by --category");
    }
    const std::multimap<std::string, fs::path> found = categoriesOf(folder, file);
    if (found.empty())
        throw Failure(wrong, "neither " + folder + " nor a folder in it holds a file named " + file);
    for (const auto& [name, place] : found) {
        const std::int32_t number = mapping.all().empty() ? category : mapping.numberOf(name);
        const std::string path = (place / file).string();
        if (number >= 0) {
            sources->push_back({path, number});
        } else {
            skipped->add(path + ": skipped, the mapping has no number for " + printable(name));
        }
    }
}

}  // namespace

std::vector<Source> findSources(const std::vector<std::string>& arguments, Kind kind, std::int32_t category,
                                const Mapping& mapping, Notes* skipped) {
    std::vector<Source> sources;
    for (const std::string& argument : arguments) {
        Source source{argument, category};
        if (isFolder(argument)) {
            addFolder(argument, kind, category, mapping, &sources, skipped);
        } else if (splitCategory(argument, &source) && isFolder(source.path)) {
            addFolder(source.path, kind, source.category, Mapping(), &sources, skipped);
        } else {
            sources.push_back(source);
        }
    }
    return sources;
}

}  // namespace katlist
