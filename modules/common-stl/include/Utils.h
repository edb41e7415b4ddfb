// General helpers: bytes, hexadecimal digits, tokens, formatting, time stamps, numbers.
#ifndef QOR_UTILS_H
#define QOR_UTILS_H

#include <cstdint>
#include <string>
#include <vector>

namespace QOR_SPACE {

// Static functions without state; thread-safe. Lengths and counts are in bytes and not negative.
class Utils {
public:
    Utils() = delete;

    // True if both ranges of `count` bytes are equal.
    static bool compareBytes(const char* left, const char* right, int count);
    // Upper-case hexadecimal digit of the low four bits of v.
    static char CHAR_TO_HEX(int v);
    // The byte with that hexadecimal notation, as a signed 8-bit value. The digits are not checked.
    static int HEX_TO_CHAR(char high, char low);
    // A copy of the token at `index` (from 0), to be freed with delete[], or null if there is none. A run of
    // delimiters is one separator.
    static char* strToK(const char* text, int index, const char* delimiters);
    // True if the buffer contains the pattern. NUL bytes are ordinary bytes; every buffer contains an empty
    // pattern.
    static bool memstr(const char* buffer, int length, const char* pattern, int patternLength);
    // True if every character is a decimal digit or one of `extra` (may be null); false for null and "".
    static bool isdigits(const char* text, const char* extra = nullptr);
    // printf into a string, cut at 4095 characters.
    static std::string formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));
    // Current local time, "HH:MM:SS".
    static std::string getLocalTime();
    // Current local date, "YYYY-MM-DD".
    static std::string getLocalDate();
    // Removes the characters of `chars` (null: line feed, carriage return, tab, blank) from both ends.
    // Returns s.c_str(), or null if nothing is left.
    static const char* trimString(std::string& s, const char* chars = nullptr);
    // The number at the start of the `length` characters at `text`, modulo 2 to the power of 32; 0 without
    // digits. Radix 8 and 16 accept their digits, any other radix decimal digits. NUL bytes and blanks are
    // skipped; a digit before a character that is not a hexadecimal digit ends the number. Throws Exception
    // ("invalid oct number", "invalid hex number", "invalid dec number") for a character that is not a digit
    // of the radix.
    static std::int32_t parseInt(const char* text, int length, int radix);
    // May change the token, which is stored afterwards.
    typedef void (*TokenCallback)(std::string& token, void* argument);
    // Replaces the contents of `tokens` by the non-empty tokens of `text`. The callback is called only if it
    // and its argument are both set. `text` and `delimiters` must not be elements of `tokens`.
    static void stringTokenizer(const std::string& text, std::vector<std::string>& tokens,
                                const std::string& delimiters, TokenCallback callback = nullptr,
                                void* argument = nullptr);
};

}  // namespace QOR_SPACE

#endif
