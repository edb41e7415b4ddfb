// Text helpers of the stand-in engine. Functions without state: any thread may call them.
#ifndef ASAPSDK_TEXT_H
#define ASAPSDK_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace asapsdk {

using Categories = std::vector<unsigned short>;

// A failure of a function, as CSDKException_* show it.
struct Failure {
    int type = 0;
    int code = 0;
    std::string text;
};

// The form in which URLs are compared: no blanks around it, no leading scheme, the host in lower case.
std::string normalisedUrl(std::string_view url);

// The host of a normalised URL, without a port.
std::string hostOf(const std::string& url);

// Bytes below 0x20, 0x7f and the backslash as \xHH, all others as they are: a text that fits in one line.
std::string escaped(std::string_view text);

// Undoes escaped(). False, with `text` in an unknown state, for what escaped() never writes.
bool unescape(std::string_view line, std::string* text);

// "5,44,300" to numbers. False, with `categories` in an unknown state, unless there are 1 to 65535 numbers,
// each of 0 to 65535 in decimal digits.
bool parseCategories(std::string_view text, Categories* categories);

// The numbers with commas between, the form that parseCategories() takes.
std::string toText(const Categories& categories);

// A decimal number in all of the text. False, with `number` unchanged, for anything else and out of range.
bool parseNumber(std::string_view text, int* number);
bool parseNumber(std::string_view text, std::uint32_t* number);

}  // namespace asapsdk

#endif
