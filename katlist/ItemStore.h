// The items of a list that is being built: compact, for tens of millions.
#ifndef KATLIST_ITEMSTORE_H
#define KATLIST_ITEMSTORE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace katlist {

// The strings are packed into large blocks, which never move; a record of 16 bytes describes each. One
// thread. Throws std::bad_alloc.
class ItemStore {
public:
    using Ranks = std::array<std::uint16_t, 256>;  // by category

    struct Record {
        std::uint32_t start;   // the first four bytes: most comparisons need not read the string
        std::uint32_t offset;  // of the string, in units of four bytes; increases with each item
        std::uint32_t line;    // where it was read
        std::uint16_t file;    // index of the source
        std::uint8_t category;
        bool derived;  // made from an item that was read, such as its www. name
    };

    // `text` has at most itemLimit bytes. start and offset of `source` are ignored. Throws Failure beyond 16
    // GiB.
    void add(const char* text, const Record& source);
    // The NUL-terminated string of a record, valid as long as the store.
    const char* text(const Record& record) const {
        return blocks_[record.offset >> unitBits].get() + (record.offset & unitMask) * unit;
    }
    // Sorts into the order in which katd searches. Of equal strings those that were read come before derived
    // ones, then those whose category has the lower rank, then those that were added first.
    void sort(const Ranks& ranks);

    std::vector<Record> records;

private:
    static constexpr std::size_t unit = 4;         // bytes
    static constexpr std::uint32_t unitBits = 20;  // a block has 2^20 units, 4 MiB
    static constexpr std::uint32_t unitMask = (1U << unitBits) - 1;

    std::vector<std::unique_ptr<char[]>> blocks_;
    std::uint32_t used_ = 1U << unitBits;  // units in use of the last block; initially there is none
};

}  // namespace katlist

#endif
