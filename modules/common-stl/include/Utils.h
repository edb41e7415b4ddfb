// General helpers of the library: bytes, hex digits, tokens, formatting, time stamps, numbers.
#ifndef QOR_UTILS_H
#define QOR_UTILS_H

#include <cstdint>
#include <string>
#include <vector>

namespace QOR_SPACE {

// Static functions without state; any thread. Lengths and counts are in bytes and not negative.
class Utils {
public:
    Utils() = delete;

    // True if the two ranges of `count` bytes are equal; true for count 0.
    static bool compareBytes(const char* left, const char* right, int count);
    // Upper-case hexadecimal digit of the low four bits of v.
    static char CHAR_TO_HEX(int v);
    // The byte that two hexadecimal digits name, as a signed 8-bit value. The digits are not checked.
    static int HEX_TO_CHAR(char high, char low);
    // Copy of the token at `index` (from 0), null when there is none. A run of delimiters is one separator.
    // The caller releases it with delete[].
    static char* strToK(const char* text, int index, const char* delimiters);
    // True if the pattern occurs in the buffer; zero bytes are ordinary bytes, an empty pattern always
    // occurs.
    static bool memstr(const char* buffer, int length, const char* pattern, int patternLength);
    // True if every character is a decimal digit or one of `extra` (may be null); false for a null or empty
    // text.
    static bool isdigits(const char* text, const char* extra = nullptr);
    // printf into a string of at most 4095 characters; the rest is cut.
    static std::string formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));
    // Present local time, "HH:MM:SS".
    static std::string getLocalTime();
    // Present local date, "YYYY-MM-DD".
    static std::string getLocalDate();
    // Removes the characters of `chars` (null: line feed, carriage return, tab, blank) from both ends.
    // Returns the text, valid until s changes, or null when nothing is left.
    static const char* trimString(std::string& s, const char* chars = nullptr);
    // The number at the start of the `length` characters at `text`, in 32-bit arithmetic that wraps; 0 for no
    // digits. Radix 8 and 16 take their digits, any other radix takes decimal ones. Zero bytes and blanks are
    // skipped; a digit followed by something that is no hexadecimal digit ends the number. Throws Exception
    // ("invalid oct number", "invalid hex number", "invalid dec number") for what is no digit of the radix.
    static std::int32_t parseInt(const char* text, int length, int radix);
    // May change a token before it is stored.
    typedef void (*TokenCallback)(std::string& token, void* argument);
    // Replaces the contents of `tokens` by the non-empty tokens of `text`. The callback is called only when
    // it and its argument are both set. `text` and `delimiters` must not be elements of `tokens`.
    static void stringTokenizer(const std::string& text, std::vector<std::string>& tokens,
                                const std::string& delimiters, TokenCallback callback = nullptr,
                                void* argument = nullptr);
};

}  // namespace QOR_SPACE

#endif
