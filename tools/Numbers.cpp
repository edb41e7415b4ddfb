#include "tools/Numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace tools {

std::optional<std::uint64_t> parseDecimal(std::string_view digits, std::uint64_t most) {
    std::uint64_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number > most) return std::nullopt;
    return number;
}

std::optional<std::uint32_t> parseSeconds(std::string_view digits) {
    double seconds = -1;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, seconds, std::chars_format::fixed);
    // The comparison also refuses "nan".
    if (result.ec != std::errc() || result.ptr != end || !(seconds >= 0 && seconds <= maxSeconds))
        return std::nullopt;
    if (seconds == 0) return 0;
    return std::max(1U, static_cast<std::uint32_t>(std::lround(seconds * 1000)));
}

}  // namespace tools
