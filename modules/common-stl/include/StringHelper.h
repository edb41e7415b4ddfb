// Comparisons, searches, changes and number conversions on strings.
#ifndef QOR_STRINGHELPER_H
#define QOR_STRINGHELPER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace QOR_SPACE {

// Static functions without state; any thread. Case is that of the C locale's bytes. None throws but
// std::bad_alloc. C strings passed to a function that changes s may point into s.
class StringHelper {
public:
    StringHelper() = delete;

    // Two nulls are equal, a null and a text are not.
    static bool equals(const char* left, const char* right);
    static bool equalsIgnoreCase(const char* left, const char* right);
    // False when either is null; an empty prefix or suffix fits every text.
    static bool startsWith(const char* text, const char* prefix);
    static bool startsWithIgnoreCase(const char* text, const char* prefix);
    static bool endsWith(const char* text, const char* suffix);
    static bool endsWithIgnoreCase(const char* text, const char* suffix);
    // The same for a text that may hold zero bytes.
    static bool endsWith(const std::string& text, const char* suffix);

    // Position of the first occurrence at or after `from` (taken as 0 when negative), -1 when absent.
    static std::int32_t indexOfIgnoreCase(const std::string& text, const std::string& pattern,
                                          std::int32_t from = 0);
    // Position of the last occurrence, -1 when absent.
    static std::int32_t lastIndexOfIgnoreCase(const std::string& text, const std::string& pattern);

    static void toupper(std::string& s);
    static void tolower(std::string& s);
    // Every `from` becomes `to`.
    static void replaceChar(std::string& s, char from, char to);
    // Bytes that replace() may let a text grow to when inserted text takes part in new matches.
    static constexpr std::size_t replaceLengthLimit = 65536;
    // Replaces the first `from` by `to` until there is none left, so inserted text takes part in the next
    // search ("aab", "ab" to "b": "b"). Nothing happens when either is null or `from` is empty. Where `to`
    // contains `from`, each occurrence is replaced once. Ends for every input: a replacement that would make
    // s longer than replaceLengthLimit, and longer than replacing every original occurrence could make it,
    // is not made.
    static void replace(std::string& s, const char* from, const char* to);
    // Removes the characters of `chars` from both ends.
    static void trim(std::string& s, const char* chars);
    // Cuts s to its first n characters.
    static void trimToLength(std::string& s, std::size_t n);

    // "true" or "false".
    static const char* btoa(bool value);
    // True for "true" in any case; false for everything else, null included.
    static bool atob(const char* text);
    // "%d", "%ld", "%f" and "%g".
    static std::string ntoa(int value);
    static std::string ltoa(long value);
    static std::string ftoa(float value);
    static std::string dtoa(double value);
};

}  // namespace QOR_SPACE

#endif
