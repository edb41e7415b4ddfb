#include "PlainList.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <charconv>

#include "Fail.h"

namespace bench {

namespace {

constexpr std::size_t BLOCK = 256 * 1024;
constexpr std::ptrdiff_t CATEGORY = 4;  // characters before the item, including the bar

// Compares signed bytes; longerKey is the result for a key that begins with the item.
std::int32_t compareTexts(const char* key, const char* item, std::int32_t longerKey) {
    while (*item != '\0' && *key == *item) {
        ++key;
        ++item;
    }
    if (*item == '\0') return *key == '\0' ? 0 : longerKey;
    if (*key == '\0') return -1;
    return static_cast<signed char>(*key) > static_cast<signed char>(*item) ? 1 : -1;
}

}  // namespace

PlainList::PlainList(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) fail("cannot read %s: %s", path.c_str(), strerror(errno));
    const std::unique_ptr<char[]> block(new char[BLOCK]);
    std::size_t kept = 0;
    for (ssize_t got; (got = read(fd, block.get() + kept, BLOCK - kept)) > 0;) {
        const char* line = block.get();
        const char* const end = line + kept + got;
        while (const void* feed = memchr(line, '\n', static_cast<std::size_t>(end - line)))
            line = takeLine(line, static_cast<const char*>(feed) + 1, path);
        kept = static_cast<std::size_t>(end - line);
        memmove(block.get(), line, kept);
    }
    close(fd);
    if (count_ == 0) fail("%s is no list", path.c_str());
}

// Adds the line [line, next), which ends with a line feed. Returns next.
const char* PlainList::takeLine(const char* line, const char* next, const std::string& path) {
    std::uint32_t number = 0;
    const char* const bar = std::from_chars(line, next, number).ptr;
    if (texts_ == nullptr) {
        std::from_chars(bar + 1, next, size_);
        room_ = number;
        texts_.reset(new char[size_]);
        entries_.reset(new Entry[room_]);
        return next;
    }
    const std::size_t length = static_cast<std::size_t>(next - line - CATEGORY - 1);
    if (next - line <= CATEGORY || used_ + length >= size_ || static_cast<std::uint32_t>(count_) == room_)
        fail("%s is no list", path.c_str());
    memcpy(&texts_[used_], line + CATEGORY, length);
    texts_[used_ + length] = '\0';
    entries_[static_cast<std::size_t>(count_)] = {static_cast<std::int32_t>(used_), number};
    ++count_;
    used_ += static_cast<std::uint32_t>(length) + 1;
    return next;
}

std::int32_t PlainList::compare(const char* key, const char* item) {
    return compareTexts(key, item, 1);
}

std::int32_t PlainList::comparePrefix(const char* key, const char* item) {
    return compareTexts(key, item, 0);
}

std::int32_t PlainList::search(Compare compareWith, const char* key) const {
    std::int32_t low = 0;
    std::int32_t high = count_ - 1;
    while (low <= high) {
        const std::int32_t middle = low + (high - low) / 2;
        const std::int32_t order = compareWith(key, text(middle));
        if (order == 0) return middle;
        if (order == 1) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return ~low;
}

}  // namespace bench
