// Names of category numbers.
#ifndef KATD_TOOLS_CATEGORYNAMES_H
#define KATD_TOOLS_CATEGORYNAMES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tools {

// The categories of a file of lines "name = number". Blanks around a name or number and blank lines are
// ignored, # begins a comment, and the last = of a line separates name and number. Thread-safe once read.
class CategoryNames {
public:
    using Entry = std::pair<std::string, std::uint32_t>;
    enum class Status { ok, unreadable, malformed };

    static constexpr std::uint32_t katdHighest = 255;  // the highest category number that katd knows

    // Categories 0 to `highest`, without names.
    explicit CategoryNames(std::uint32_t highest = katdHighest) : highest_(highest) {}

    // Reads the file; call it once. A number may have several names. A name may appear twice only with the
    // same number, and it must be usable in a list: without a comma or control characters, and not a number
    // or range itself. Unless ok, *problem is a sentence without its full stop, with the path and the line.
    Status read(const std::string& path, std::string* problem);

    bool empty() const { return entries_.empty(); }
    std::uint32_t highest() const { return highest_; }
    // Each name once, in the order of the file.
    const std::vector<Entry>& entries() const { return entries_; }

    // The name of the number that comes first in the file; empty if it has none.
    const std::string& nameOf(std::uint32_t number) const;
    std::optional<std::uint32_t> numberOf(std::string_view name) const;
    // For display: nameOf() or, without a name, the number in decimal.
    std::string display(std::uint32_t number) const;

    // A name, or a number from 0 to highest().
    std::optional<std::uint32_t> resolve(std::string_view word) const;
    // A list of names, numbers and ranges such as 4,7,advertising,10-20, with blanks around them ignored.
    // Sets (*chosen)[number] to true for each; the vector is enlarged to highest() + 1 values first. False if
    // an item cannot be resolved or the list is empty: *problem is then a sentence without its full stop, and
    // *chosen is unspecified.
    bool resolveList(std::string_view list, std::vector<bool>* chosen, std::string* problem) const;

private:
    bool resolveRange(std::string_view word, std::uint32_t* first, std::uint32_t* last) const;

    const std::uint32_t highest_;
    std::vector<Entry> entries_;
    std::map<std::string, std::uint32_t, std::less<>> numbers_;
    std::map<std::uint32_t, std::string> names_;  // the first of each number
};

}  // namespace tools

#endif
