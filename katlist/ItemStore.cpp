#include "ItemStore.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Shared.h"
#include "StringList/StringList.h"

namespace katlist {

namespace {

// Ordered like the strings, whose bytes compare as signed. If two results are equal, compare the strings: the
// end of a string counts as the lowest byte.
std::uint32_t startOf(const char* text) {
    std::uint32_t start = 0;
    bool ended = false;
    for (int i = 0; i < 4; ++i) {
        ended = ended || text[i] == '\0';
        start = start << 8U | (ended ? 0U : static_cast<unsigned char>(text[i]) ^ 0x80U);
    }
    return start;
}

}  // namespace

void ItemStore::add(const char* text, const Record& source) {
    const std::size_t bytes = std::strlen(text) + 1;
    const std::uint32_t units = static_cast<std::uint32_t>((bytes + unit - 1) / unit);
    if (used_ + units > 1U << unitBits) {
        if (blocks_.size() > std::numeric_limits<std::uint32_t>::max() >> unitBits)
            throw Failure(failed, "there are more than 16 GiB of items: build from fewer inputs at once");
        blocks_.emplace_back(new char[unit << unitBits]);
        used_ = 0;
    }
    Record record = source;
    record.start = startOf(text);
    record.offset = static_cast<std::uint32_t>(blocks_.size() - 1) << unitBits | used_;
    std::memcpy(blocks_.back().get() + used_ * unit, text, bytes);
    records.push_back(record);
    used_ += units;
}

void ItemStore::sort(const Ranks& ranks) {
    std::sort(records.begin(), records.end(), [this, &ranks](const Record& left, const Record& right) {
        if (left.start != right.start) return left.start < right.start;
        const std::int32_t order = KATD_SPACE::StringList::cmp(text(left), text(right));
        if (order != 0) return order < 0;
        if (left.derived != right.derived) return right.derived;
        if (left.category != right.category && ranks[left.category] != ranks[right.category])
            return ranks[left.category] < ranks[right.category];
        return left.offset < right.offset;
    });
}

}  // namespace katlist
