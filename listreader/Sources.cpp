#include "listreader/Sources.h"

#include <charconv>
#include <filesystem>
#include <map>
#include <system_error>

#include "Text.h"
#include "listreader/Failure.h"

namespace listreader {

namespace fs = std::filesystem;

namespace {

bool isFolder(const std::string& path) {
    std::error_code ignored;
    return fs::is_directory(path, ignored);
}

bool exists(const std::string& path) {
    std::error_code ignored;
    return fs::exists(path, ignored);
}

// Splits CATEGORY=FILE. An existing file of that very name is meant instead.
bool splitCategory(const std::string& argument, const CategoryRules& rules, Source* source) {
    const std::size_t sign = argument.find('=');
    if (sign == 0 || sign == std::string::npos || exists(argument)) return false;
    const std::string_view word(argument.data(), sign);
    const std::string path = argument.substr(sign + 1);
    const bool isNumber = word.find_first_not_of("0123456789") == word.npos;
    source->category = rules.numberOf ? rules.numberOf(word) : -1;
    if (source->category < 0 && isNumber) source->category = toCategory(word, rules.highest);
    source->path = path;
    if (source->category >= 0) return true;
    if (isNumber || (word.find('/') == word.npos && exists(path))) {
        throw Failure(badUsage, "the category of " + printable(argument) + " must be a number from 0 to " +
                                    std::to_string(rules.highest) +
                                    (rules.numberOf ? " or a known name" : ""));
    }
    source->path = argument;
    source->category = rules.otherwise;
    return false;
}

std::vector<const char*> fileNames(Wanted wanted) {
    switch (wanted) {
        case Wanted::urls:
            return {"urls"};
        case Wanted::domains:
            return {"domains"};
        case Wanted::both:
            break;
    }
    return {"domains", "urls"};
}

// Files of category folders: of the folder itself and of those below it at any depth, by category. A category
// is called as its path below the folder; the folder itself by its own name.
std::multimap<std::string, std::string> filesOf(const fs::path& folder, Wanted wanted) {
    std::multimap<std::string, std::string> found;
    const auto add = [&](const std::string& category, const fs::path& place) {
        for (const char* file : fileNames(wanted)) {
            std::error_code ignored;
            if (fs::is_regular_file(place / file, ignored)) found.emplace(category, (place / file).string());
        }
    };
    std::error_code error;
    const fs::path whole = fs::absolute(folder / ".", error).lexically_normal();
    add(whole.parent_path().filename().string(), folder);
    auto entry = fs::recursive_directory_iterator(folder, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        std::error_code ignored;
        if (entry->is_directory(ignored))
            add(entry->path().lexically_relative(folder).string(), entry->path());
    }
    if (error) throw fileFailure("read", folder.string(), error.value());
    return found;
}

void addFolder(const std::string& folder, Wanted wanted, const CategoryRules& rules,
               std::vector<Source>* sources, Notes* skipped) {
    if (!rules.numberOf && rules.otherwise < 0) {
        throw Failure(badUsage, folder +
                                    " is a folder: name the file with the numbers of its categories by "
                                    "--categories, or one category for all by --category");
    }
    const auto files = filesOf(folder, wanted);
    if (files.empty()) {
        throw Failure(wrong, "neither " + folder + " nor a folder in it contains a file named " +
                                 (wanted == Wanted::urls      ? "urls"
                                  : wanted == Wanted::domains ? "domains"
                                                              : "domains or urls"));
    }
    for (const auto& [name, path] : files) {
        const std::int32_t number = rules.numberOf ? rules.numberOf(name) : rules.otherwise;
        if (number >= 0) {
            sources->push_back({path, number});
        } else {
            skipped->add(path + ": skipped, the file of --categories has no number for " + printable(name));
        }
    }
}

}  // namespace

std::vector<Source> findSources(const std::vector<std::string>& arguments, Wanted wanted,
                                const CategoryRules& rules, Notes* skipped) {
    std::vector<Source> sources;
    for (const std::string& argument : arguments) {
        Source source{argument, rules.otherwise};
        if (isFolder(argument)) {
            addFolder(argument, wanted, rules, &sources, skipped);
        } else if (splitCategory(argument, rules, &source) && isFolder(source.path)) {
            CategoryRules one;
            one.otherwise = source.category;
            addFolder(source.path, wanted, one, &sources, skipped);
        } else {
            sources.push_back(source);
        }
    }
    return sources;
}

void readNames(const std::string& path, tools::CategoryNames* names) {
    std::string problem;
    const auto status = names->read(path, &problem);
    if (status == tools::CategoryNames::Status::ok) return;
    const bool isUnreadable = status == tools::CategoryNames::Status::unreadable;
    throw Failure(isUnreadable ? failed : wrong, problem + (isUnreadable ? ": check the path" : ""));
}

std::int32_t toCategory(std::string_view text, std::int32_t highest) {
    const std::string_view digits = trimmed(text);
    std::int32_t number = -1;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool isNumber = !digits.empty() && isDigit(digits[0]) && result.ec == std::errc() &&
                          result.ptr == digits.data() + digits.size();
    return isNumber && number <= highest ? number : -1;
}

}  // namespace listreader
