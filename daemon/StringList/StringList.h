#ifndef KATD_STRINGLIST_H
#define KATD_STRINGLIST_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "StringList/SearchHeads.h"

namespace KATD_SPACE {

// A sorted list of texts, each with a category, loaded whole from a file and searched by binary search. It
// has no lock: one thread loads or resets it while nobody looks anything up; look-ups may run in parallel.
// Owns its storage. Nothing throws; failures are reported and leave the list empty.
//
// The file:
//     2|36                      number of items | sum of (length + 1) over the items
//     012|ads.example.net       category in three characters | item
//     034|tracker.example.org
// Items are in ascending order of `cmp` (nobody checks that), lines behind the last one counted are ignored,
// and a line that is no item ends the list early.
class StringList {
public:
    struct Entry {
        std::int32_t offset;     // start of the item's text in `buffer`
        std::uint32_t category;  // as written in the file; "-01" has all bits set
    };
    // -1, 0 or 1: how key compares with item.
    using Compare = std::int32_t (*)(const char* key, const char* item);

    StringList() = default;
    ~StringList() { reset(); }
    StringList(const StringList&) = delete;
    StringList& operator=(const StringList&) = delete;

    // Replaces the content by the file's. True when at least one item was read; otherwise the list is empty.
    // A null path, and what is not a regular file, fails like a file that cannot be opened.
    bool load(const char* path);
    // Reads item lines into the storage that load() has prepared (buffer, bufferSize, count, entries). The
    // number of items held, which is `count` then; 0 when there are none, something is missing or the space
    // ran out. It reads ahead: where the stream stands afterwards is not told.
    std::int32_t readItemList(std::FILE* stream);
    // Releases the storage. Item texts handed out before are gone.
    void reset();
    // Changes contents with another list, in no time. Item texts handed out stay valid.
    void swap(StringList& other);

    // The stored text that equals key, or null. Its category is stored in *category unless that is null; on a
    // miss it is left alone. The text stays valid until reset() or load(). REQUIRES: key is not null.
    const char* find(const char* key, std::uint32_t* category) const;
    // The same for a stored text with which key begins. It is the first one on the path of one binary search:
    // a prefix that this path does not visit is not found.
    const char* find_sw(const char* key, std::uint32_t* category) const;
    // The same for a caller that knows the key's length. REQUIRES: length == strlen(key).
    const char* find(const char* key, std::size_t length, std::uint32_t* category) const;
    const char* find_sw(const char* key, std::size_t length, std::uint32_t* category) const;
    // Binary search between two indices, both included. Index of a match, or the complement (negative) of the
    // position at which the search ended. REQUIRES: 0 <= low, high < count.
    std::int32_t find_i(Compare compare, std::int32_t low, std::int32_t high, const char* key) const;

    // Three-way comparison of bytes as signed values; a text sorts behind its own prefixes.
    static std::int32_t cmp(const char* key, const char* item);
    // The same, but 0 when key begins with item.
    static std::int32_t cmp_sw(const char* key, const char* item);

    std::unique_ptr<char[]> buffer;    // the item texts, each ended by a zero byte; null when empty
    std::int32_t bufferSize = 0;       // bytes: the size in the file's first line plus 3
    std::int32_t count = 0;            // items held
    std::unique_ptr<Entry[]> entries;  // one per item, in the file's order; null when empty
    bool loaded = false;               // a load succeeded

private:
    bool loadFrom(std::FILE* stream, const char* path);
    bool readHeader(std::FILE* stream, const char* path, std::int32_t* size);
    bool allocate(std::int32_t size);
    const char* itemAt(std::int32_t index, std::uint32_t* category) const;

    SearchHeads heads;  // of the items; none while the storage is being filled
};

}  // namespace KATD_SPACE

#endif
