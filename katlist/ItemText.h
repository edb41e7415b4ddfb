// From what people write to the text that katd compares: the same steps that katd takes with a URL.
#ifndef KATLIST_ITEMTEXT_H
#define KATLIST_ITEMTEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace katlist {

enum class Kind { urls, domains };

// Bytes of an item: longer than any URL in use, and short enough to recognise a file that is no list.
constexpr std::size_t itemLimit = 65535;

// The largest category that a reply of katd can carry.
constexpr std::int32_t categoryLimit = 255;

// Each changes `text` in place. Null: it is an item now, not empty, of one line, without blanks at its end.
// Otherwise the reason why it can be none; `text` may be changed all the same.

// A URL as somebody wrote it: lower case, no scheme, escapes of the path decoded. Capital letters may remain,
// where an escape stood for one.
const char* toUrlItem(char* text);
// A host as somebody wrote it, perhaps as a URL without a path, or with a dot in front or at the end.
const char* toHostItem(char* text);
// An item of a list file, which is decoded already: what its path holds stays as it is.
const char* storedToItem(Kind kind, char* text);

// True when there is a capital letter, A to Z.
bool hasCapitals(const char* text);
// True when the item is an address: "192.0.2.1", "192.0.2.1:80/x", "[2001:db8::1]".
bool isAddress(const std::string& item);
// A category from 0 to 255 in decimal digits, blanks around them allowed; -1 for anything else.
std::int32_t toCategory(const std::string& text);

}  // namespace katlist

#endif
