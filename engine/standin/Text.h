// String functions of the stand-in engine. Thread-safe.
#ifndef ASAPSDK_TEXT_H
#define ASAPSDK_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace asapsdk {

using Categories = std::vector<unsigned short>;

// A failure of a function, as CSDKException_* return it.
struct Failure {
    int type = 0;
    int code = 0;
    std::string text;
};

// The form in which URLs are compared: trimmed, without the scheme, the host in lower case.
std::string normalisedUrl(std::string_view url);

// The host of a normalised URL, without a port.
std::string hostOf(const std::string& url);

// Escapes bytes below 0x20, 0x7f and the backslash as \xHH, so that the result is one line.
std::string escaped(std::string_view text);

// Reverses escaped(). Returns false, with `text` unspecified, for anything that escaped() cannot produce.
bool unescape(std::string_view line, std::string* text);

// Parses "5,44,300": 1 to 65535 decimal numbers from 0 to 65535. Returns false, with `categories`
// unspecified, for anything else.
bool parseCategories(std::string_view text, Categories* categories);

// The inverse of parseCategories().
std::string toText(const Categories& categories);

// Parses all of the text as a decimal number. Returns false, with `number` unchanged, for anything else or
// out of range.
bool parseNumber(std::string_view text, int* number);
bool parseNumber(std::string_view text, std::uint32_t* number);

}  // namespace asapsdk

#endif
