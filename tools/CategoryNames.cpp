#include "tools/CategoryNames.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "tools/Numbers.h"
#include "tools/Text.h"

namespace tools {

namespace {

std::string_view trimmed(std::string_view text) {
    constexpr char blanks[] = " \t\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

bool hasControlCharacters(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) return true;
    }
    return false;
}

// Why a name cannot be used in a list of categories; null if it can.
const char* problemOfName(std::string_view name) {
    if (name.find(',') != name.npos) return "contains a comma, which separates the items of a list";
    if (name.find_first_not_of("0123456789-") == name.npos) return "looks like a number or a range";
    return nullptr;
}

}  // namespace

CategoryNames::Status CategoryNames::read(const std::string& path, std::string* problem) {
    std::ifstream file(path);
    unsigned lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        std::string_view content(line);
        constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";  // some editors begin files with it
        if (lineNumber == 1 && content.substr(0, byteOrderMark.size()) == byteOrderMark)
            content.remove_prefix(byteOrderMark.size());
        content = trimmed(content.substr(0, content.find('#')));
        if (content.empty()) continue;

        const std::string where = path + ", line " + std::to_string(lineNumber) + ": ";
        const std::size_t sign = content.rfind('=');
        const std::string_view name = trimmed(content.substr(0, sign));
        const auto number =
            sign == content.npos ? std::nullopt : parseDecimal(trimmed(content.substr(sign + 1)), highest_);
        if (name.empty() || hasControlCharacters(name) || !number) {
            *problem = where + "write a name, = and a number from 0 to " + std::to_string(highest_) +
                       ", not " + printable(content, 100);
            return Status::malformed;
        }
        const auto value = static_cast<std::uint32_t>(*number);
        const auto [known, isNew] = numbers_.emplace(name, value);
        const char* wrong = problemOfName(name);
        if (wrong == nullptr && known->second != value) wrong = "appears twice, with different numbers";
        if (wrong != nullptr) {
            *problem = where + "the name " + printable(name, 100) + " " + wrong;
            return Status::malformed;
        }
        if (!isNew) continue;
        entries_.emplace_back(name, value);
        names_.emplace(value, name);
    }
    // A directory can be opened, but not read.
    if (!file.is_open() || file.bad()) {
        *problem = "cannot read " + path + " (" + std::strerror(errno) + ")";
        return Status::unreadable;
    }
    return Status::ok;
}

const std::string& CategoryNames::nameOf(std::uint32_t number) const {
    static const std::string none;
    const auto found = names_.find(number);
    return found == names_.end() ? none : found->second;
}

std::optional<std::uint32_t> CategoryNames::numberOf(std::string_view name) const {
    const auto found = numbers_.find(name);
    if (found == numbers_.end()) return std::nullopt;
    return found->second;
}

std::string CategoryNames::display(std::uint32_t number) const {
    const std::string& name = nameOf(number);
    return name.empty() ? std::to_string(number) : name;
}

std::optional<std::uint32_t> CategoryNames::resolve(std::string_view word) const {
    if (const auto named = numberOf(word)) return named;
    const auto number = parseDecimal(word, highest_);
    if (!number) return std::nullopt;
    return static_cast<std::uint32_t>(*number);
}

bool CategoryNames::resolveRange(std::string_view word, std::uint32_t* first, std::uint32_t* last) const {
    if (const auto single = resolve(word)) {
        *first = *last = *single;
        return true;
    }
    const std::size_t dash = word.find('-');
    if (dash == word.npos) return false;
    const auto from = parseDecimal(trimmed(word.substr(0, dash)), highest_);
    const auto to = parseDecimal(trimmed(word.substr(dash + 1)), highest_);
    if (!from || !to || *from > *to) return false;
    *first = static_cast<std::uint32_t>(*from);
    *last = static_cast<std::uint32_t>(*to);
    return true;
}

bool CategoryNames::resolveList(std::string_view list, std::vector<bool>* chosen,
                                std::string* problem) const {
    if (chosen->size() <= highest_) chosen->resize(std::size_t{highest_} + 1);
    if (trimmed(list).empty()) {
        *problem = "a list of categories is empty: write numbers, ranges and names, such as 5,33-34,games";
        return false;
    }
    for (std::size_t begin = 0; begin <= list.size();) {
        const std::size_t comma = std::min(list.find(',', begin), list.size());
        const std::string_view word = trimmed(list.substr(begin, comma - begin));
        begin = comma + 1;
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        if (!resolveRange(word, &first, &last)) {
            *problem = "there is no category [" + printable(word, 100) + "]: write a number from 0 to " +
                       std::to_string(highest_) +
                       ", a range such as 33-34, or a name of the file of --categories";
            return false;
        }
        for (std::uint32_t number = first; number <= last; ++number)
            (*chosen)[number] = true;
    }
    return true;
}

}  // namespace tools
