// Items as katd compares them, made by the same steps that katd takes with a URL.
#ifndef KATLIST_ITEMTEXT_H
#define KATLIST_ITEMTEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "Shared.h"

namespace katlist {

enum class Kind { urls, domains };

// The longest item in bytes.
constexpr std::size_t itemLimit = listreader::entryLimit;

// The highest category that a reply of katd can carry.
constexpr std::int32_t categoryLimit = 255;

// Turns the text of an entry into an item: lower case, the path decoded. Capital letters may remain, where an
// escape stood for one. An item of a list file (isStored) is decoded already and keeps its path. Null if it
// is an item now, otherwise a phrase that says why it cannot be one; the text may be changed all the same.
const char* toItem(Kind kind, Entry* entry);
// The same for the item of a list file: *asked becomes the item as it should be written.
const char* storedToItem(Kind kind, const std::string& item, std::string* asked);

// True if there is a capital letter, A to Z.
bool hasCapitals(const char* text);

}  // namespace katlist

#endif
