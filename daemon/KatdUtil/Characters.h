#ifndef KATD_KATDUTIL_CHARACTERS_H
#define KATD_KATDUTIL_CHARACTERS_H

namespace KATD_SPACE {

// What the text helpers, the lists and the look-up agree on, whatever the locale.

inline bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

inline char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

inline bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'f');
}

}  // namespace KATD_SPACE

#endif
