#include "StringList/KeyPrefixIndex.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "StringList/StringList.h"

namespace KATD_SPACE {

namespace {

// At most one item in 3 is in the index: on lower levels the entries and items of a search are close together
// anyway, and each level would double the memory.
constexpr std::int32_t itemsPerHead = 3;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the heads are read as little-endian words");

// Blocks of at least this many bytes are mapped. The heap would keep the freed memory in the arena of the
// thread that loaded the list: 18 MB and more after reloads of 10,000,000 items.
constexpr std::size_t mappingThreshold = 1 << 20;

constexpr unsigned headBytes = sizeof(std::uint32_t);
constexpr std::ptrdiff_t wordBytes = sizeof(std::uint64_t);

// Four bytes as a number in the order of the list: signed bytes, with the lowest value for the end of the
// string and beyond. (Items with equal heads are compared in full.) `bytes` is big-endian, and its first
// `used` bytes count.
std::uint32_t ordered(std::uint32_t bytes, unsigned used) {
    const std::uint32_t order = bytes ^ 0x80808080;
    return used >= headBytes ? order : static_cast<std::uint32_t>(order & ~(0xFFFFFFFFULL >> (8 * used)));
}

// The head of a string of `left` bytes and a NUL.
inline std::uint32_t headOf(const char* text, std::size_t left) {
    std::uint32_t bytes = 0;
    if (left >= headBytes) {
        std::memcpy(&bytes, text, headBytes);
        return ordered(__builtin_bswap32(bytes), headBytes);
    }
    for (std::size_t i = 0; i < left; ++i)
        bytes |= std::uint32_t{static_cast<unsigned char>(text[i])} << (24 - 8 * i);
    return ordered(bytes, static_cast<unsigned>(left));
}

// The same for a string of unknown length of which at least four bytes are readable.
inline std::uint32_t headOfReadable(const char* text) {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, text, headBytes);
    const std::uint32_t zeros = (bytes - 0x01010101) & ~bytes & 0x80808080;  // exact in its lowest bit
    return ordered(__builtin_bswap32(bytes),
                   zeros == 0 ? headBytes : static_cast<unsigned>(__builtin_ctz(zeros)) / 8);
}

// True if the item may end inside its head, so that it may be a prefix of the larger key: beyond its end all
// bits are zero. (Bytes of 0x80 look the same; then the comparison decides.)
inline bool mayEndWithin(std::uint32_t key, std::uint32_t item) {
    return item << __builtin_clz(key ^ item) == 0;
}

std::uint64_t wordAt(const char* text) {
    std::uint64_t word = 0;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// Length of the common prefix of two strings, at most `limit`.
std::size_t commonStart(const char* a, const char* b, std::size_t limit) {
    std::size_t length = 0;
    while (length < limit && a[length] != '\0' && a[length] == b[length])
        ++length;
    return length;
}

// The same for a string of at least `limit` bytes and several others, where words of eight bytes that start
// below the limit are readable.
std::size_t commonStart(const char* a, const char* const* others, unsigned count, std::size_t limit) {
    for (std::size_t at = 0; at < limit; at += wordBytes) {
        std::uint64_t differences = 0;
        for (unsigned i = 0; i < count; ++i)
            differences |= wordAt(a + at) ^ wordAt(others[i] + at);
        if (differences != 0)
            return std::min(limit, at + static_cast<unsigned>(__builtin_ctzll(differences)) / 8);
    }
    return limit;
}

const char* textOf(const StringList& list, std::int32_t index) {
    return list.buffer.get() + list.entries[static_cast<std::size_t>(index)].offset;
}

}  // namespace

void KeyPrefixIndex::build(const StringList& list) {
    drop();
    unsigned levels = 0;
    while ((list.count / itemsPerHead) >> (levels + 1) != 0)
        ++levels;
    if (levels == 0) return;
    rootLevels = (levels - 1) % levelsInBlock + 1;
    const unsigned wanted = (levels - rootLevels) / levelsInBlock + 1;
    std::size_t count = 0;
    for (unsigned row = 0; row < wanted; ++row)
        count += blocksIn(row);
    blocks = allocate(count);
    if (blocks == nullptr) return;
    rows = wanted;
    fill(list, {0, list.count}, 0, blocks.get(), 0);
}

KeyPrefixIndex::Blocks KeyPrefixIndex::allocate(std::size_t count) {
    const std::size_t size = count * sizeof(Block);
    if (size < mappingThreshold) return Blocks(new (std::nothrow) Block[count]);
    void* const mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return mapping == MAP_FAILED ? Blocks() : Blocks(static_cast<Block*>(mapping), Release(size));
}

void KeyPrefixIndex::Release::operator()(Block* first) const {
    if (mapped == 0) {
        delete[] first;
    } else {
        munmap(first, mapped);
    }
}

void KeyPrefixIndex::drop() {
    blocks.reset();
    rows = 0;
}

std::size_t KeyPrefixIndex::blocksIn(unsigned row) const {
    return row == 0 ? 1 : std::size_t{1} << (rootLevels + (row - 1) * levelsInBlock);
}

// Fills a block and those below it for the range of items to which a search is narrowed there.
void KeyPrefixIndex::fill(const StringList& list, Range range, unsigned row, Block* rowStart,
                          std::size_t position) {
    const unsigned levels = row == 0 ? rootLevels : levelsInBlock;
    Block& block = rowStart[position];
    Range ranges[2U << levelsInBlock];
    const char* texts[1U << levelsInBlock] = {};
    const unsigned end = 1U << levels;
    ranges[1] = range;
    for (unsigned node = 1; node < end; ++node) {
        const Range& all = ranges[node];
        const std::int32_t left = (all.size - 1) / 2;
        texts[node] = textOf(list, all.low + left);
        ranges[std::size_t{2} * node] = {all.low, left};
        ranges[std::size_t{2} * node + 1] = {all.low + left + 1, all.size - 1 - left};
    }
    // Keys that get here lie between the items on either side of the range and share their common prefix. So
    // do the items of a sorted list.
    std::size_t skip = 0;
    const char* below = range.low > 0 ? textOf(list, range.low - 1) : "";
    const char* above = range.low + range.size < list.count ? textOf(list, range.low + range.size) : nullptr;
    if (above != nullptr) skip = commonStart(below, above, UINT16_MAX);
    // The item above follows in the buffer, so words of eight bytes are readable: a load of a million items
    // is 6 % faster.
    if (above != nullptr && above - textOf(list, range.low + range.size - 1) >= wordBytes) {
        skip = commonStart(below, texts + 1, end - 1, skip);
        for (unsigned node = 1; node < end; ++node)
            block.heads[node - 1] = headOfReadable(texts[node] + skip);
    } else {
        for (unsigned node = 1; node < end; ++node)
            skip = commonStart(below, texts[node], skip);
        for (unsigned node = 1; node < end; ++node)
            block.heads[node - 1] = headOf(texts[node] + skip, strnlen(texts[node] + skip, headBytes));
    }
    block.skip = static_cast<std::uint32_t>(skip);

    if (row + 1 == rows) return;
    for (unsigned child = 0; child < end; ++child)
        fill(list, ranges[end + child], row + 1, rowStart + blocksIn(row), position * end + child);
}

template <bool prefix>
std::int32_t KeyPrefixIndex::search(const StringList& list, const char* key, std::size_t length) const {
    constexpr StringList::Compare compare = prefix ? StringList::cmp_sw : StringList::cmp;
    Range range = {0, list.count};
    const Block* rowStart = blocks.get();
    std::size_t position = 0;
    for (unsigned row = 0; row < rows; ++row) {
        const Block& block = rowStart[position];
        const std::uint32_t head = headOf(key + block.skip, length - block.skip);
        const unsigned end = 1U << (row == 0 ? rootLevels : levelsInBlock);
        unsigned node = 1;
        while (node < end) {
            const std::uint32_t item = block.heads[node - 1];
            const std::int32_t left = (range.size - 1) / 2;
            bool isRight = head > item;
            if (head == item || (prefix && isRight && mayEndWithin(head, item))) {
                const std::int32_t order = compare(key, textOf(list, range.low + left));
                if (order == 0) return range.low + left;
                isRight = order == 1;
            }
            range.low += isRight ? left + 1 : 0;
            range.size = isRight ? range.size - 1 - left : left;
            node = 2 * node + (isRight ? 1 : 0);
        }
        rowStart += blocksIn(row);
        position = position * end + (node - end);
    }
    return list.find_i(compare, range.low, range.low + range.size - 1, key);
}

std::int32_t KeyPrefixIndex::find(const StringList& list, const char* key, std::size_t length) const {
    return search<false>(list, key, length);
}

std::int32_t KeyPrefixIndex::findPrefix(const StringList& list, const char* key, std::size_t length) const {
    return search<true>(list, key, length);
}

}  // namespace KATD_SPACE
