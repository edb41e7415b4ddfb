// Names of categories: a file of lines "name = number", with # before comments.
#ifndef KATLIST_MAPPING_H
#define KATLIST_MAPPING_H

#include <cstdint>
#include <map>
#include <string>

namespace katlist {

class Mapping {
public:
    // Reads the file. Throws Failure where it cannot be read, or a line is none, or a name stands twice.
    static Mapping load(const std::string& path);

    // The number of a name, or -1.
    std::int32_t numberOf(const std::string& name) const;
    // The first name, in alphabetical order, that has the number, or an empty text.
    std::string nameOf(std::int32_t number) const;
    const std::map<std::string, std::uint8_t>& all() const { return numbers_; }

private:
    std::map<std::string, std::uint8_t> numbers_;
};

}  // namespace katlist

#endif
