// Functions on strings.
#ifndef QOR_STRINGHELPER_H
#define QOR_STRINGHELPER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace QOR_SPACE {

// Static functions without state; thread-safe. Case is that of ASCII letters in the C locale. Nothing throws
// but std::bad_alloc. C strings passed to a function that changes s may point into s.
class StringHelper {
public:
    StringHelper() = delete;

    // Two null pointers are equal; a null pointer and a string are not.
    static bool equals(const char* left, const char* right);
    static bool equalsIgnoreCase(const char* left, const char* right);
    // False if either is null; an empty prefix or suffix matches every string.
    static bool startsWith(const char* text, const char* prefix);
    static bool startsWithIgnoreCase(const char* text, const char* prefix);
    static bool endsWith(const char* text, const char* suffix);
    static bool endsWithIgnoreCase(const char* text, const char* suffix);
    // The same for a string that may contain NUL bytes.
    static bool endsWith(const std::string& text, const char* suffix);

    // Offset of the first occurrence at or after `from` (0 if negative), or -1.
    static std::int32_t indexOfIgnoreCase(const std::string& text, const std::string& pattern,
                                          std::int32_t from = 0);
    // Offset of the last occurrence, or -1.
    static std::int32_t lastIndexOfIgnoreCase(const std::string& text, const std::string& pattern);

    static void toupper(std::string& s);
    static void tolower(std::string& s);
    // Replaces every `from` by `to`.
    static void replaceChar(std::string& s, char from, char to);
    // Length to which replace() may let a string grow if inserted text creates new matches.
    static constexpr std::size_t replaceLengthLimit = 65536;
    // Replaces the first `from` by `to` until none is left, so inserted text takes part in the next search
    // ("aab", "ab" to "b": "b"). If `to` contains `from`, each occurrence is replaced once. Does nothing if
    // either is null or `from` is empty. Terminates for every input: it stops before s grows longer than both
    // replaceLengthLimit and the result of one pass over the original occurrences.
    static void replace(std::string& s, const char* from, const char* to);
    // Removes the characters of `chars` from both ends.
    static void trim(std::string& s, const char* chars);
    // Cuts s to its first n characters.
    static void trimToLength(std::string& s, std::size_t n);

    // "true" or "false".
    static const char* btoa(bool value);
    // True for "true" in any case; false for anything else, including null.
    static bool atob(const char* text);
    // "%d", "%ld", "%f" and "%g".
    static std::string ntoa(int value);
    static std::string ltoa(long value);
    static std::string ftoa(float value);
    static std::string dtoa(double value);
};

}  // namespace QOR_SPACE

#endif
