#include "CategoryNames.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string_view>

namespace katc {

namespace {

std::string_view trimmed(std::string_view text) {
    constexpr char blanks[] = " \t\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

bool hasControls(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) return true;
    }
    return false;
}

// Null for a name that a list of categories can hold; else what is wrong with it.
const char* problemOf(std::string_view name) {
    if (name.find(',') != name.npos) return "holds a comma, which separates names in a list";
    if (name.find_first_not_of("0123456789-") == name.npos) return "reads as a number or a range";
    return nullptr;
}

}  // namespace

bool CategoryNames::read(const std::string& path, std::string* problem) {
    std::ifstream file(path);
    unsigned number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const std::string_view text = trimmed(std::string_view(line).substr(0, line.find('#')));
        if (text.empty()) continue;
        const std::size_t sign = text.rfind('=');
        const std::string_view name = trimmed(text.substr(0, sign));
        const std::string_view value =
            sign == text.npos ? std::string_view() : trimmed(text.substr(sign + 1));
        std::uint8_t category = 0;
        const auto result = std::from_chars(value.data(), value.data() + value.size(), category);
        if (name.empty() || hasControls(name) || value.empty() || result.ec != std::errc() ||
            result.ptr != value.data() + value.size()) {
            *problem = path + ", line " + std::to_string(number) +
                       ": write a name, = and a number from 0 to 255, not " + std::string(text);
            return false;
        }
        const char* wrong = problemOf(name);
        if (wrong == nullptr && numbers_.emplace(name, category).first->second != category)
            wrong = "stands twice, with different numbers";
        if (wrong != nullptr) {
            *problem = path + ", line " + std::to_string(number) + ": the name " + std::string(name) + " " +
                       wrong + ": change it";
            return false;
        }
        if (names_[category].empty()) names_[category] = name;
    }
    // A folder can be opened, but not read.
    if (!file.is_open() || file.bad()) {
        *problem = "cannot read " + path + " (" + std::strerror(errno) + ")";
        return false;
    }
    return true;
}

std::optional<unsigned> CategoryNames::numberOf(const std::string& name) const {
    const auto found = numbers_.find(name);
    if (found == numbers_.end()) return std::nullopt;
    return found->second;
}

}  // namespace katc
