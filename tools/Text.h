// Strings from outside, such as URLs, names and paths, in messages and plain output.
#ifndef KATD_TOOLS_TEXT_H
#define KATD_TOOLS_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tools {

// Appends `text` with its control characters escaped, so that it cannot end a line or a field of plain
// output, or control a terminal: bytes below 0x20 and 0x7f as \xNN, and each byte of the UTF-8 sequences of
// U+0080 to U+009F. Backslashes and bytes that are not UTF-8 stay as they are.
void appendPrintable(std::string_view text, std::string* out);

// The same as a new string. Longer texts are cut after `limit` bytes of input and end with "...".
std::string printable(std::string_view text, std::size_t limit = std::string_view::npos);

// Prints "PROGRAM: SENTENCE." and a line feed on standard error, with one write. Control characters are
// escaped.
void printError(std::string_view program, std::string_view sentence);

}  // namespace tools

#endif
