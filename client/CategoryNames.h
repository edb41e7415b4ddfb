// Names of category numbers.
#ifndef KATC_CATEGORYNAMES_H
#define KATC_CATEGORYNAMES_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace katc {

// What a file of lines "name = number" holds; blank lines are skipped, and # begins a comment. Immutable once
// read.
class CategoryNames {
public:
    // Reads the file. False when it cannot be read, or a line is no such line, or a name could not be meant
    // in a list of categories (it is a number or a range, holds a comma, or stands for two numbers): *problem
    // then is a sentence without its end.
    bool read(const std::string& path, std::string* problem);

    // Empty when the number has no name. Of several names, the first in the file.
    const std::string& nameOf(std::uint8_t category) const { return names_[category]; }
    // The number of a name; none when the file has no such name.
    std::optional<unsigned> numberOf(const std::string& name) const;

private:
    std::array<std::string, 256> names_;
    std::map<std::string, unsigned> numbers_;
};

}  // namespace katc

#endif
