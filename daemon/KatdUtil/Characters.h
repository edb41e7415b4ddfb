#ifndef KATD_CHARACTERS_H
#define KATD_CHARACTERS_H

namespace KATD_SPACE {

// Character classes of the string helpers, the lists and the look-up. They do not depend on the locale.

inline bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

inline bool isDecimalDigit(char c) {
    return c >= '0' && c <= '9';
}

inline char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

inline char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

inline bool isHexDigit(char c) {
    return isDecimalDigit(c) || (lower(c) >= 'a' && lower(c) <= 'f');
}

// Value of a hexadecimal digit; 0 for any other character.
inline unsigned hexValue(char c) {
    if (!isHexDigit(c)) return 0;
    return static_cast<unsigned>(isDecimalDigit(c) ? c - '0' : lower(c) - 'a' + 10);
}

inline char hexByte(char high, char low) {
    return static_cast<char>(hexValue(high) * 16 + hexValue(low));
}

// True if the NUL-terminated string starts with "%" and two hexadecimal digits: the escape of hexByte(s[1],
// s[2]).
inline bool isEscape(const char* s) {
    return s[0] == '%' && isHexDigit(s[1]) && isHexDigit(s[2]);
}

// Schemes that a look-up ignores, in lower case.
constexpr const char* schemes[] = {"http://", "https://", "ftp://"};

}  // namespace KATD_SPACE

#endif
