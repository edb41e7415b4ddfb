#include "StringHelper.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

namespace QOR_SPACE {

namespace {

std::string lowerCopy(const std::string& text) {
    std::string lowered = text;
    StringHelper::tolower(lowered);
    return lowered;
}

std::int32_t position(std::string::size_type found) {
    return found == std::string::npos ? -1 : static_cast<std::int32_t>(found);
}

}  // namespace

bool StringHelper::equals(const char* left, const char* right) {
    if (left == nullptr || right == nullptr) return left == right;
    return std::strcmp(left, right) == 0;
}

bool StringHelper::equalsIgnoreCase(const char* left, const char* right) {
    if (left == nullptr || right == nullptr) return left == right;
    return strcasecmp(left, right) == 0;
}

bool StringHelper::startsWith(const char* text, const char* prefix) {
    if (text == nullptr || prefix == nullptr) return false;
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

bool StringHelper::startsWithIgnoreCase(const char* text, const char* prefix) {
    if (text == nullptr || prefix == nullptr) return false;
    return strncasecmp(text, prefix, std::strlen(prefix)) == 0;
}

bool StringHelper::endsWith(const char* text, const char* suffix) {
    if (text == nullptr || suffix == nullptr) return false;
    const std::size_t textLength = std::strlen(text);
    const std::size_t suffixLength = std::strlen(suffix);
    return suffixLength <= textLength && std::strcmp(text + (textLength - suffixLength), suffix) == 0;
}

bool StringHelper::endsWithIgnoreCase(const char* text, const char* suffix) {
    if (text == nullptr || suffix == nullptr) return false;
    const std::size_t textLength = std::strlen(text);
    const std::size_t suffixLength = std::strlen(suffix);
    return suffixLength <= textLength && strcasecmp(text + (textLength - suffixLength), suffix) == 0;
}

bool StringHelper::endsWith(const std::string& text, const char* suffix) {
    if (suffix == nullptr) return false;
    const std::size_t suffixLength = std::strlen(suffix);
    return suffixLength <= text.size() &&
           text.compare(text.size() - suffixLength, suffixLength, suffix, suffixLength) == 0;
}

std::int32_t StringHelper::indexOfIgnoreCase(const std::string& text, const std::string& pattern,
                                             std::int32_t from) {
    const std::size_t start = from < 0 ? 0 : static_cast<std::size_t>(from);
    return position(lowerCopy(text).find(lowerCopy(pattern), start));
}

std::int32_t StringHelper::lastIndexOfIgnoreCase(const std::string& text, const std::string& pattern) {
    return position(lowerCopy(text).rfind(lowerCopy(pattern)));
}

void StringHelper::toupper(std::string& s) {
    for (char& c : s) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
}

void StringHelper::tolower(std::string& s) {
    for (char& c : s) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
}

void StringHelper::replaceChar(std::string& s, char from, char to) {
    std::replace(s.begin(), s.end(), from, to);
}

void StringHelper::replace(std::string& s, const char* from, const char* to) {
    if (from == nullptr || to == nullptr || *from == '\0') return;
    const std::string wanted = from, inserted = to;  // both may lie in s
    const std::size_t fromLength = wanted.size();
    const std::size_t toLength = inserted.size();
    const bool insertsFrom = inserted.find(wanted) != std::string::npos;
    const std::size_t onePass = s.size() / fromLength * toLength + s.size() % fromLength;
    const std::size_t limit = std::max(replaceLengthLimit, onePass);

    std::size_t found = s.find(wanted);
    while (found != std::string::npos) {
        if (toLength > fromLength && s.size() - fromLength + toLength > limit) return;
        s.replace(found, fromLength, inserted);
        // The text before this offset was searched already: a new match must reach into the inserted text.
        std::size_t next = found >= fromLength ? found - (fromLength - 1) : 0;
        if (insertsFrom) next = found + toLength;
        found = s.find(wanted, next);
    }
}

void StringHelper::trim(std::string& s, const char* chars) {
    // Both ends first: chars may lie in s.
    const std::size_t end = s.find_last_not_of(chars) + 1;
    const std::size_t begin = std::min(s.find_first_not_of(chars), end);
    s.erase(end);
    s.erase(0, begin);
}

void StringHelper::trimToLength(std::string& s, std::size_t n) {
    if (s.size() > n) s.resize(n);
}

const char* StringHelper::btoa(bool value) {
    return value ? "true" : "false";
}

bool StringHelper::atob(const char* text) {
    return equalsIgnoreCase(text, "true");
}

std::string StringHelper::ntoa(int value) {
    char buffer[16];
    std::snprintf(buffer, sizeof(buffer), "%d", value);
    return buffer;
}

std::string StringHelper::ltoa(long value) {
    char buffer[256];
    std::snprintf(buffer, sizeof(buffer), "%ld", value);
    return buffer;
}

std::string StringHelper::ftoa(float value) {
    char buffer[256];
    std::snprintf(buffer, sizeof(buffer), "%f", static_cast<double>(value));
    return buffer;
}

std::string StringHelper::dtoa(double value) {
    char buffer[256];
    std::snprintf(buffer, sizeof(buffer), "%g", value);
    return buffer;
}

}  // namespace QOR_SPACE
