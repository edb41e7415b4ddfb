// Small helpers for bytes of lists; only ASCII letters change.
#ifndef LISTREADER_TEXT_H
#define LISTREADER_TEXT_H

#include <cstddef>
#include <string_view>

namespace listreader {

constexpr std::string_view blanks = " \t\r\n";

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

inline void lower(char* text, std::size_t length) {
    for (char* const end = text + length; text < end; ++text) {
        if (*text >= 'A' && *text <= 'Z') *text = static_cast<char>(*text + ('a' - 'A'));
    }
}

inline std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// `word` is in lower case.
inline bool startsWith(std::string_view text, std::string_view word) {
    if (text.size() < word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        const char c = text[i];
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c) != word[i]) return false;
    }
    return true;
}

inline bool equals(std::string_view text, std::string_view word) {
    return text.size() == word.size() && startsWith(text, word);
}

// Without a leading http://, https:// or ftp://.
inline std::string_view withoutScheme(std::string_view text) {
    for (const std::string_view scheme : {"http://", "https://", "ftp://"}) {
        if (startsWith(text, scheme)) return text.substr(scheme.size());
    }
    return text;
}

// Splits off the first word of *text, up to a blank; empty if there is none.
inline std::string_view takeWord(std::string_view* text) {
    *text = trimmed(*text);
    const std::string_view word = text->substr(0, text->find_first_of(blanks));
    text->remove_prefix(word.size());
    return word;
}

}  // namespace listreader

#endif
