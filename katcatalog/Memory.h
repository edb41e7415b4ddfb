// What a catalogue remembers of the lists that it was made of, so that sync need not read them all.
#ifndef KATCATALOG_MEMORY_H
#define KATCATALOG_MEMORY_H

#include <cstdint>
#include <string>
#include <vector>

namespace katcatalog {

// A list as it was when it was read. Stored in this layout.
struct KnownList {
    // The size and times tell that a file is unchanged; if they differ, the checksum decides.
    std::uint64_t size;
    std::uint64_t inode;
    std::int64_t modified;  // nanoseconds since 1970
    std::int64_t changed;   // the same of ctime; 0 if the file may have changed again at the same time
    std::uint64_t checksum[2];
    std::uint64_t bad;      // lines
    std::int32_t category;  // of lines that name none
    std::uint16_t source;   // its number in the catalogue
    std::uint8_t isWhole;   // 0: the file is not known, because it was no regular file or changed meanwhile
    // It has entries without a category, of which the catalogue does not record the list.
    std::uint8_t hasUnclaimed;
};
static_assert(sizeof(KnownList) == 64, "the file stores lists in this layout");

// Notes what the file has now. False if it is not a regular file or cannot be read.
bool examine(const std::string& path, KnownList* list);
// Whether the file has the contents that `list` has; its times in `list` may be updated.
bool isUnchanged(const std::string& path, KnownList* list);
// Whether its size, times and inode are still those of `list`.
bool isAsBefore(const std::string& path, const KnownList& list);

// The lists in the order in which they were read, as the catalogue stores them. `rules` is a text that
// differs if the same lists may be read in another way. Empty if `stored` is not of these rules.
std::vector<KnownList> parseMemory(const std::string& stored, const std::string& rules);
std::string memoryValue(const std::vector<KnownList>& lists, const std::string& rules);

}  // namespace katcatalog

#endif
