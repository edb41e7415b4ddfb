#include "Text.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace asapsdk {

namespace {

constexpr std::string_view whitespace = " \t\r\n";
constexpr std::string_view hexDigits = "0123456789abcdef";

char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool startsWith(std::string_view text, std::string_view lowerCase) {
    return text.size() >= lowerCase.size() &&
           std::equal(lowerCase.begin(), lowerCase.end(), text.begin(),
                      [](char expected, char c) { return expected == toLower(c); });
}

template <typename Number>
bool parse(std::string_view text, Number* number) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) return false;
    *number = value;
    return true;
}

}  // namespace

std::string normalisedUrl(std::string_view url) {
    const auto first = url.find_first_not_of(whitespace);
    if (first == url.npos) return {};
    url = url.substr(first, url.find_last_not_of(whitespace) - first + 1);
    for (const std::string_view scheme : {"http://", "https://", "ftp://"}) {
        if (startsWith(url, scheme)) {
            url.remove_prefix(scheme.size());
            break;
        }
    }
    std::string text(url);
    const auto hostEnd =
        text.begin() + static_cast<std::ptrdiff_t>(std::min(text.find_first_of("/?#"), text.size()));
    std::transform(text.begin(), hostEnd, text.begin(), toLower);
    return text;
}

std::string hostOf(const std::string& url) {
    std::string host = url.substr(0, url.find_first_of("/?#"));
    // An address in brackets contains colons.
    const auto bracket = host.rfind(']');
    const auto port = host.find(':', bracket == host.npos ? 0 : bracket);
    if (port != host.npos) host.erase(port);
    return host;
}

std::string escaped(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f && c != '\\') {
            line += c;
        } else {
            line += "\\x";
            line += hexDigits[byte >> 4];
            line += hexDigits[byte & 15];
        }
    }
    return line;
}

bool unescape(std::string_view line, std::string* text) {
    text->clear();
    text->reserve(line.size());
    while (!line.empty()) {
        if (line[0] != '\\') {
            *text += line[0];
            line.remove_prefix(1);
            continue;
        }
        if (line.size() < 4 || line[1] != 'x') return false;
        const auto high = hexDigits.find(line[2]);
        const auto low = hexDigits.find(line[3]);
        if (high == hexDigits.npos || low == hexDigits.npos) return false;
        *text += static_cast<char>(high * 16 + low);
        line.remove_prefix(4);
    }
    return true;
}

bool parseCategories(std::string_view text, Categories* categories) {
    categories->clear();
    for (;;) {
        const auto comma = text.find(',');
        unsigned short number = 0;
        if (!parse(text.substr(0, comma), &number)) return false;
        if (categories->size() == std::numeric_limits<unsigned short>::max()) return false;
        categories->push_back(number);
        if (comma == text.npos) return true;
        text.remove_prefix(comma + 1);
    }
}

std::string toText(const Categories& categories) {
    std::string text;
    for (const unsigned short number : categories) {
        if (!text.empty()) text += ',';
        text += std::to_string(number);
    }
    return text;
}

bool parseNumber(std::string_view text, int* number) {
    return parse(text, number);
}
bool parseNumber(std::string_view text, std::uint32_t* number) {
    return parse(text, number);
}

}  // namespace asapsdk
