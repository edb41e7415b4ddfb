#include "Utils.h"

#include <time.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Exception.h"
#include "StringHelper.h"
#include "ThrowPositions.h"

namespace QOR_SPACE {

namespace {

// Value of a hexadecimal digit; 0 for any other character.
int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return 0;
}

bool isHexDigit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool isDecDigit(char c) {
    return c >= '0' && c <= '9';
}

void requireDigit(char c, int radix) {
    if (radix == 8) {
        if (c < '0' || c > '7') throwException<Exception>(throwPosition::octNumber, "invalid oct number");
    } else if (radix == 16) {
        if (!isHexDigit(c)) throwException<Exception>(throwPosition::hexNumber, "invalid hex number");
    } else if (!isDecDigit(c)) {
        throwException<Exception>(throwPosition::decNumber, "invalid dec number");
    }
}

tm localTimeNow() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return local;
}

}  // namespace

bool Utils::compareBytes(const char* left, const char* right, int count) {
    while (count > 0) {
        --count;
        if (left[count] != right[count]) return false;
    }
    return true;
}

char Utils::CHAR_TO_HEX(int v) {
    return "0123456789ABCDEF"[v & 0xF];
}

int Utils::HEX_TO_CHAR(char high, char low) {
    return static_cast<std::int8_t>(digitValue(high) * 16 + digitValue(low));
}

char* Utils::strToK(const char* text, int index, const char* delimiters) {
    if (index < 0) return nullptr;
    const char* token = text;
    for (int separators = 0; separators < index; ++separators) {
        token += std::strcspn(token, delimiters);
        if (*token == '\0') return nullptr;
        token += std::strspn(token, delimiters);
    }
    const std::size_t length = std::strcspn(token, delimiters);
    if (length == 0) return nullptr;
    char* copy = new char[length + 1];
    std::memcpy(copy, token, length);
    copy[length] = '\0';
    return copy;
}

bool Utils::memstr(const char* buffer, int length, const char* pattern, int patternLength) {
    if (length < patternLength) return false;
    if (buffer == pattern || patternLength <= 0) return true;
    const std::size_t wanted = static_cast<std::size_t>(patternLength);
    const char* const end = buffer + length;
    const char* rest = buffer;
    while (end - rest >= patternLength) {
        const void* found = std::memchr(rest, *pattern, static_cast<std::size_t>(end - rest));
        if (found == nullptr) return false;
        rest = static_cast<const char*>(found);
        if (end - rest < patternLength) return false;
        if (std::memcmp(rest, pattern, wanted) == 0) return true;
        ++rest;
    }
    return false;
}

bool Utils::isdigits(const char* text, const char* extra) {
    if (text == nullptr || *text == '\0') return false;
    for (; *text != '\0'; ++text) {
        if (!isDecDigit(*text) && (extra == nullptr || std::strchr(extra, *text) == nullptr)) return false;
    }
    return true;
}

std::string Utils::formatString(const char* format, ...) {
    char buffer[4096] = "";
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return buffer;
}

std::string Utils::getLocalTime() {
    const tm local = localTimeNow();
    char buffer[9];
    return std::string(buffer, strftime(buffer, sizeof(buffer), "%H:%M:%S", &local));
}

std::string Utils::getLocalDate() {
    const tm local = localTimeNow();
    char buffer[11];
    return std::string(buffer, strftime(buffer, sizeof(buffer), "%Y-%m-%d", &local));
}

const char* Utils::trimString(std::string& s, const char* chars) {
    StringHelper::trim(s, chars == nullptr ? "\n\r\t " : chars);
    return s.empty() ? nullptr : s.c_str();
}

std::int32_t Utils::parseInt(const char* text, int length, int radix) {
    std::uint32_t result = 0;
    for (int i = 0; i < length; ++i) {
        const char c = text[i];
        if (c == '\0' || c == ' ') continue;
        requireDigit(c, radix);
        result = result * static_cast<std::uint32_t>(radix) + static_cast<std::uint32_t>(digitValue(c));
        if (i + 1 < length && !isHexDigit(text[i + 1])) break;
    }
    return static_cast<std::int32_t>(result);
}

void Utils::stringTokenizer(const std::string& text, std::vector<std::string>& tokens,
                            const std::string& delimiters, TokenCallback callback, void* argument) {
    tokens.clear();
    if (text.empty() || delimiters.empty()) return;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find_first_of(delimiters, start);
        if (end == std::string::npos) end = text.size();
        if (end > start) {
            std::string token = text.substr(start, end - start);
            if (callback != nullptr && argument != nullptr) callback(token, argument);
            tokens.push_back(token);
        }
        start = end + 1;
    }
}

}  // namespace QOR_SPACE
