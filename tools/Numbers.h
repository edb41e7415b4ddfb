// Numbers on command lines and in files.
#ifndef KATD_TOOLS_NUMBERS_H
#define KATD_TOOLS_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace tools {

// The value of decimal digits. None for an empty string, a number above `most`, or any other character, signs
// and blanks included. Leading zeros are allowed.
std::optional<std::uint64_t> parseDecimal(std::string_view digits, std::uint64_t most);

// The longest time limit that an option takes: 46 days, which as milliseconds fit 32 bits.
constexpr unsigned maxSeconds = 4000000;

// Milliseconds of a number of seconds such as 2 or 0.5. None if it is not one, or above maxSeconds. A number
// above 0 becomes at least 1 ms, because 0 usually means "no limit".
std::optional<std::uint32_t> parseSeconds(std::string_view digits);

}  // namespace tools

#endif
