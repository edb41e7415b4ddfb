#include "StringList/SearchHeads.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "StringList/StringList.h"

namespace KATD_SPACE {

namespace {

// At most one item in 3 has a head: further down, the entries and texts of a search lie together anyway,
// and the memory would double with each level.
constexpr std::int32_t itemsPerHead = 3;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the heads are built for x86");

// Bytes. The heap would keep what is freed of the heads of large lists, in the arena of the thread that
// loaded them: 18 MB and more after reloads of 10,000,000 items.
constexpr std::size_t ownMapping = 1 << 20;

constexpr unsigned headBytes = sizeof(std::uint32_t);
constexpr std::ptrdiff_t wordBytes = sizeof(std::uint64_t);

// Four bytes as a number that orders as the list does: signed bytes, and nothing below the end of the text,
// which counts as the lowest. Texts that look alike for that are compared themselves. `bytes` is big-endian,
// its first `used` count.
std::uint32_t ordered(std::uint32_t bytes, unsigned used) {
    const std::uint32_t order = bytes ^ 0x80808080;
    return used >= headBytes ? order : static_cast<std::uint32_t>(order & ~(0xFFFFFFFFULL >> (8 * used)));
}

// The head of what is left of a text, `left` bytes and a zero byte.
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

// The same for a text of unknown length, of which four bytes may be read in any case.
inline std::uint32_t headOfReadable(const char* text) {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, text, headBytes);
    const std::uint32_t zeros = (bytes - 0x01010101) & ~bytes & 0x80808080;  // the lowest bit is right
    return ordered(__builtin_bswap32(bytes),
                   zeros == 0 ? headBytes : static_cast<unsigned>(__builtin_ctz(zeros)) / 8);
}

// Whether the text of head `item` ends where the larger `key` goes on: at their first difference.
inline bool endsWithin(std::uint32_t key, std::uint32_t item) {
    const int same = __builtin_clz(key ^ item) / 8 * 8;
    return (item << same) >> 24 == 0;
}

std::uint64_t wordAt(const char* text) {
    std::uint64_t word = 0;
    std::memcpy(&word, text, sizeof word);
    return word;
}

// How many bytes two texts have in common at their start, up to `limit`.
std::size_t commonStart(const char* a, const char* b, std::size_t limit) {
    std::size_t length = 0;
    while (length < limit && a[length] != '\0' && a[length] == b[length])
        ++length;
    return length;
}

// The same for a text of at least `limit` bytes and each of several texts, for which words of eight bytes may
// be read from below the limit.
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

void SearchHeads::build(const StringList& list) {
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

SearchHeads::Blocks SearchHeads::allocate(std::size_t count) {
    const std::size_t size = count * sizeof(Block);
    if (size < ownMapping) return Blocks(new (std::nothrow) Block[count]);
    void* const mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return mapping == MAP_FAILED ? Blocks() : Blocks(static_cast<Block*>(mapping), Release(size));
}

void SearchHeads::Release::operator()(Block* first) const {
    if (mapped == 0) {
        delete[] first;
    } else {
        munmap(first, mapped);
    }
}

void SearchHeads::drop() {
    blocks.reset();
    rows = 0;
}

std::size_t SearchHeads::blocksIn(unsigned row) const {
    return row == 0 ? 1 : std::size_t{1} << (rootLevels + (row - 1) * levelsInBlock);
}

// Fills the block at a position of a row, and those below it, for the range that a search has left there.
void SearchHeads::fill(const StringList& list, Range range, unsigned row, Block* rowStart,
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
    // A search gets here with a key between the items on either side of the range: it begins as both do. So
    // do the items of a list that is in order.
    std::size_t skip = 0;
    const char* below = range.low > 0 ? textOf(list, range.low - 1) : "";
    const char* above = range.low + range.size < list.count ? textOf(list, range.low + range.size) : nullptr;
    if (above != nullptr) skip = commonStart(below, above, UINT16_MAX);
    // Beyond the items lie the skipped bytes of the one above: words of eight can be read, which takes 6 %
    // off the load of a million items.
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
std::int32_t SearchHeads::search(const StringList& list, const char* key, std::size_t length) const {
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
            if (head == item || (prefix && isRight && endsWithin(head, item))) {
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

std::int32_t SearchHeads::find(const StringList& list, const char* key, std::size_t length) const {
    return search<false>(list, key, length);
}

std::int32_t SearchHeads::findPrefix(const StringList& list, const char* key, std::size_t length) const {
    return search<true>(list, key, length);
}

}  // namespace KATD_SPACE
