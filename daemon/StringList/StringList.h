#ifndef KATD_STRINGLIST_H
#define KATD_STRINGLIST_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "StringList/KeyPrefixIndex.h"

namespace KATD_SPACE {

// A sorted list of strings with categories, loaded from a file and searched by binary search. It has no lock:
// look-ups may run in parallel, load and reset only while none runs. Nothing throws; failures are reported
// and leave the list empty.
//
// The file:
//     2|36                      number of items | sum of (length + 1) over the items
//     012|ads.example.net       category in three characters | item
//     034|tracker.example.org
// Items must be in ascending order of `cmp`; this is not checked. Lines after the last item counted are
// ignored; an invalid line ends the list early.
class StringList {
public:
    struct Entry {
        std::int32_t offset;     // of the item in `buffer`
        std::uint32_t category;  // as written in the file; "-01" has all bits set
    };
    // Returns -1, 0 or 1 if key is less than, equal to or greater than item.
    using Compare = std::int32_t (*)(const char* key, const char* item);

    StringList() = default;
    ~StringList() { reset(); }
    StringList(const StringList&) = delete;
    StringList& operator=(const StringList&) = delete;

    // Replaces the content with the file's. Returns true if at least one item was read; otherwise the list is
    // empty. A null path, and what is not a regular file, fails like a file that cannot be opened.
    bool load(const char* path);
    // Reads item lines into the storage that load() prepared (buffer, bufferSize, count, entries). Returns
    // the number of items, now also `count`; 0 if there are none, the storage is missing or the buffer was
    // too small. The stream's position afterwards is unspecified.
    std::int32_t readItemList(std::FILE* stream);
    // Frees the storage. Items returned before become invalid.
    void reset();
    // Swaps contents in constant time. Items returned before stay valid.
    void swap(StringList& other);

    // Returns the item that equals key, or null. Stores its category in *category, unless that is null or
    // there is no such item. The item stays valid until reset() or load(). REQUIRES: key is not null.
    const char* find(const char* key, std::uint32_t* category) const;
    // The same for an item that is a prefix of key: the first one that the binary search visits. A prefix
    // that the search does not visit is not found.
    const char* find_sw(const char* key, std::uint32_t* category) const;
    // The same with the key's length. REQUIRES: length == strlen(key).
    const char* find(const char* key, std::size_t length, std::uint32_t* category) const;
    const char* find_sw(const char* key, std::size_t length, std::uint32_t* category) const;
    // Binary search from low to high, both included. Returns the index of a match, or the bitwise complement
    // (which is negative) of the index where the search ended. REQUIRES: 0 <= low, high < count.
    std::int32_t find_i(Compare compare, std::int32_t low, std::int32_t high, const char* key) const;

    // Three-way comparison of bytes as signed values; a string is greater than its prefixes.
    static std::int32_t cmp(const char* key, const char* item);
    // The same, but 0 if item is a prefix of key.
    static std::int32_t cmp_sw(const char* key, const char* item);

    std::unique_ptr<char[]> buffer;    // the items, each NUL-terminated; null when empty
    std::int32_t bufferSize = 0;       // bytes: the size in the file's first line plus 3
    std::int32_t count = 0;            // items held
    std::unique_ptr<Entry[]> entries;  // one per item, in the file's order; null when empty
    bool loaded = false;               // the last load succeeded

private:
    bool loadFrom(std::FILE* stream, const char* path);
    bool readHeader(std::FILE* stream, const char* path, std::int32_t* size);
    bool allocate(std::int32_t size);
    const char* itemAt(std::int32_t index, std::uint32_t* category) const;

    KeyPrefixIndex keyIndex;  // empty while the storage is being filled
};

}  // namespace KATD_SPACE

#endif
