// The items of a list that is being built: ten million and more of them, in little memory.
#ifndef KATLIST_ITEMSTORE_H
#define KATLIST_ITEMSTORE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace katlist {

// Texts lie one behind the other in large blocks, which never move; a record of 16 bytes stands for each. One
// thread. Throws std::bad_alloc.
class ItemStore {
public:
    struct Record {
        std::uint32_t start;    // the first four bytes, so that most comparisons need not look at the text
        std::uint32_t place;    // where the text lies, in units of four bytes; grows with each item added
        std::uint32_t line;     // where it was read
        std::uint16_t file;     // the input's number
        std::uint8_t category;  // 0 to 255
        bool derived;           // made from an item that was read, such as its www. name
    };

    // `text` has at most itemLimit bytes. Throws Failure beyond 16 GiB of text.
    void add(const char* text, const Record& source);
    // The text of a record, ended by a zero byte. Valid as long as the store.
    const char* text(const Record& record) const {
        return blocks_[record.place >> unitBits].get() + (record.place & unitMask) * unit;
    }
    // Into the order that katd searches in. Of equal texts those that were read come before those that were
    // derived, in the order in which they were added.
    void sort();

    std::vector<Record> records;

private:
    static constexpr std::size_t unit = 4;         // bytes
    static constexpr std::uint32_t unitBits = 20;  // a block has 2^20 units, 4 MiB
    static constexpr std::uint32_t unitMask = (1U << unitBits) - 1;

    std::vector<std::unique_ptr<char[]>> blocks_;
    std::uint32_t used_ = 1U << unitBits;  // units of the last block; there is none at first
};

}  // namespace katlist

#endif
