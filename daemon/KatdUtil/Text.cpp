#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "KatdUtil/Characters.h"
#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdUtil";

// Moves the string `from`, a part of s, to the start of s.
void moveToStart(char* s, const char* from) {
    if (from != s) std::memmove(s, from, std::strlen(from) + 1);
}

char* changeEach(char* s, char (*change)(char)) {
    if (s == nullptr) return s;
    for (char* c = s; *c != '\0'; ++c)
        *c = change(*c);
    return s;
}

}  // namespace

const char* Utils::FirstChar(const char* s) {
    if (s == nullptr) return s;
    while (isBlank(*s))
        ++s;
    return s;
}

bool Utils::isDigit(const char* s) {
    while (isDecimalDigit(*s))
        ++s;
    return *s == '\0';
}

char* Utils::ltrim(char* s) {
    if (s != nullptr) moveToStart(s, FirstChar(s));
    return s;
}

char* Utils::rtrim(char* s) {
    if (s == nullptr) return s;
    std::size_t length = std::strlen(s);
    while (length > 0 && isBlank(s[length - 1]))
        s[--length] = '\0';
    return s;
}

char* Utils::trim(char* s) {
    return ltrim(rtrim(s));
}

char* Utils::toLower(char* s) {
    return changeEach(s, lower);
}

char* Utils::toUpper(char* s) {
    return changeEach(s, upper);
}

unsigned char Utils::hex2uc(char c) {
    return static_cast<unsigned char>(hexValue(c));
}

bool Utils::hex2ui(const char* s, unsigned* value) {
    if (std::strlen(s) != 8) return false;
    *value = 0;
    for (int i = 0; i < 8; i += 2) {
        if (!isHexDigit(s[i]) || !isHexDigit(s[i + 1])) return false;
        *value = *value * 256 + hexValue(s[i]) * 16 + hexValue(s[i + 1]);
    }
    return true;
}

char* Utils::hex2str(const char* s) {
    if (s == nullptr || *s == '\0') return nullptr;
    const std::size_t length = std::strlen(s);
    if (length % 2 != 0) {
        DBG_MSG("Bad hex string [%s]", s);
        return nullptr;
    }
    char* text = new (std::nothrow) char[length / 2 + 1];
    if (text == nullptr) {
        DBG_MSG("allocate mem fail");
        return nullptr;
    }
    for (std::size_t i = 0; i < length; i += 2) {
        if (!isHexDigit(s[i]) || !isHexDigit(s[i + 1])) {
            DBG_MSG("Bad hex char [%c%c]", s[i], s[i + 1]);
            delete[] text;
            return nullptr;
        }
        text[i / 2] = hexByte(s[i], s[i + 1]);
    }
    text[length / 2] = '\0';
    return text;
}

char* Utils::decodeHexString(char* s) {
    const char* read = s;
    char* write = s;
    while (*read != '\0') {
        if (isEscape(read)) {
            *write++ = hexByte(read[1], read[2]);
            read += 3;
        } else {
            *write++ = *read++;
        }
    }
    *write = '\0';
    return s;
}

char* Utils::removePTP(char* s) {
    if (s == nullptr) return s;
    for (const char* scheme : schemes) {
        const std::size_t length = std::strlen(scheme);
        if (std::strncmp(s, scheme, length) == 0) {
            moveToStart(s, s + length);
            break;
        }
    }
    return s;
}

std::int32_t Utils::toInt32(const char* s) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp<long>(std::strtol(s, nullptr, 10), Limits::min(), Limits::max()));
}

}  // namespace KATD_SPACE
