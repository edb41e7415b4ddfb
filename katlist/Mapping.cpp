#include "Mapping.h"

#include <cerrno>
#include <fstream>

#include "ItemText.h"
#include "Shared.h"

namespace katlist {

namespace {

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

}  // namespace

Mapping Mapping::load(const std::string& path) {
    errno = 0;
    std::ifstream file(path);
    if (!file) throw fileFailure("open", path, errno);
    Mapping mapping;
    unsigned number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        line = trimmed(line.substr(0, line.find('#')));
        if (line.empty()) continue;
        const std::string where = path + ":" + std::to_string(number) + ": ";
        const std::size_t sign = line.rfind('=');
        const std::string name = sign == std::string::npos ? "" : trimmed(line.substr(0, sign));
        const std::int32_t category =
            sign == std::string::npos ? -1 : listreader::toCategory(line.substr(sign + 1), categoryLimit);
        if (name.empty() || category < 0) {
            throw Failure(wrong, where + "a line is \"name = number\", the number from 0 to 255, not [" +
                                     printable(line) + "]");
        }
        if (!mapping.numbers_.emplace(name, static_cast<std::uint8_t>(category)).second)
            throw Failure(wrong, where + "the name " + printable(name) + " stands twice: remove one line");
    }
    if (file.bad()) throw fileFailure("read", path, errno);
    return mapping;
}

std::int32_t Mapping::numberOf(const std::string& name) const {
    const auto found = numbers_.find(name);
    return found == numbers_.end() ? -1 : found->second;
}

std::string Mapping::nameOf(std::int32_t number) const {
    for (const auto& [name, value] : numbers_) {
        if (value == number) return name;
    }
    return "";
}

}  // namespace katlist
