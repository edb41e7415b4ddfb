#include "StringList/StringList.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "KatdUtil/Utils.h"
#include "StringList/ListFileReader.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "StringList";

constexpr int headerLimit = 1023;       // characters of the first line that count
constexpr std::int32_t spareBytes = 3;  // in the buffer, beyond the size in the first line

// Allocates an array; null if there is no memory or the size overflows.
template <typename T>
T* allocateArray(std::int32_t length) {
    const std::size_t count = static_cast<std::size_t>(length);
    if (count > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(T))
        return nullptr;
    return new (std::nothrow) T[count];
}

// Opens a regular file for reading, null for anything else. O_NONBLOCK: opening a FIFO would wait for a
// writer.
std::FILE* openRegular(const char* path) {
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat status {};
    std::FILE* stream = nullptr;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) stream = fdopen(fd, "r");
    if (stream == nullptr) close(fd);
    return stream;
}

// Three-way comparison of bytes as signed values. longerKey is the result if the item is a proper prefix of
// the key. Reads no more of the key than the item's length.
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

bool StringList::load(const char* path) {
    if (loaded) reset();
    std::FILE* stream = path == nullptr ? nullptr : openRegular(path);
    if (stream == nullptr) {
        DBG_MSG("fail to open [%s]", Utils::shown(path));
    } else {
        loaded = loadFrom(stream, path);
        std::fclose(stream);
    }
    if (loaded) return true;
    reset();
    return false;
}

bool StringList::loadFrom(std::FILE* stream, const char* path) {
    std::int32_t size = 0;
    if (!readHeader(stream, path, &size) || !allocate(size) || readItemList(stream) <= 0) return false;
    keyIndex.build(*this);
    return true;
}

bool StringList::readHeader(std::FILE* stream, const char* path, std::int32_t* size) {
    char line[headerLimit + 1];
    if (std::fgets(line, sizeof line, stream) == nullptr) {
        ERR_MSG("fail to read [%s]", path);
        return false;
    }
    Utils::trim(line);
    DBG_MSG("first line of url list file [%s]", line);
    const char* bar = std::strchr(line, '|');
    if (bar != nullptr && bar[1] != '\0') {
        count = Utils::toInt32(line);
        *size = Utils::toInt32(bar + 1);
        if (count >= 1 && *size >= 1) return true;
    }
    ERR_MSG("malformed url list file, first line [%s]", line);
    return false;
}

bool StringList::allocate(std::int32_t size) {
    if (size <= std::numeric_limits<std::int32_t>::max() - spareBytes) {
        bufferSize = size + spareBytes;
        buffer.reset(allocateArray<char>(bufferSize));
    }
    if (buffer == nullptr) {
        ERR_MSG("fail to allocate memory [%d] for url buffer",
                static_cast<int>(static_cast<unsigned>(size) + static_cast<unsigned>(spareBytes)));
        return false;
    }
    entries.reset(allocateArray<Entry>(count));
    if (entries == nullptr) {
        ERR_MSG("fail to allocate memory [%d] for url info list", count);
        return false;
    }
    return true;
}

std::int32_t StringList::readItemList(std::FILE* stream) {
    if (stream == nullptr || buffer == nullptr || entries == nullptr) return 0;
    keyIndex.drop();
    ListFileReader lines(stream);
    std::int32_t items = 0;
    std::int32_t offset = 0;
    std::uint32_t category = 0;
    while (items < count && lines.takeCategory(&category)) {
        const std::int32_t left = bufferSize - offset;
        if (left <= 0) {
            ERR_MSG("In StringList::readItemList(), offset[%u] > bufferSize[%u]",
                    static_cast<unsigned>(offset), static_cast<unsigned>(bufferSize));
            return 0;
        }
        if (left < 2) break;
        const std::int32_t length = lines.takeText(buffer.get() + offset, left);
        if (length < 0) break;
        entries[static_cast<std::size_t>(items)] = {offset, category};
        ++items;
        offset += length + 1;
    }
    count = items;
    DBG_MSG("items[%d]", count);
    return count;
}

void StringList::reset() {
    keyIndex.drop();
    buffer.reset();
    entries.reset();
    bufferSize = 0;
    count = 0;
    loaded = false;
}

void StringList::swap(StringList& other) {
    buffer.swap(other.buffer);
    entries.swap(other.entries);
    std::swap(bufferSize, other.bufferSize);
    std::swap(count, other.count);
    std::swap(loaded, other.loaded);
    std::swap(keyIndex, other.keyIndex);
}

const char* StringList::find(const char* key, std::uint32_t* category) const {
    return find(key, std::strlen(key), category);
}

const char* StringList::find_sw(const char* key, std::uint32_t* category) const {
    return find_sw(key, std::strlen(key), category);
}

const char* StringList::find(const char* key, std::size_t length, std::uint32_t* category) const {
    if (count < 1) return nullptr;
    return itemAt(keyIndex.empty() ? find_i(cmp, 0, count - 1, key) : keyIndex.find(*this, key, length),
                  category);
}

const char* StringList::find_sw(const char* key, std::size_t length, std::uint32_t* category) const {
    if (count < 1) return nullptr;
    return itemAt(
        keyIndex.empty() ? find_i(cmp_sw, 0, count - 1, key) : keyIndex.findPrefix(*this, key, length),
        category);
}

const char* StringList::itemAt(std::int32_t index, std::uint32_t* category) const {
    if (index < 0) return nullptr;
    const Entry& entry = entries[static_cast<std::size_t>(index)];
    if (category != nullptr) *category = entry.category;
    return buffer.get() + entry.offset;
}

std::int32_t StringList::find_i(Compare compare, std::int32_t low, std::int32_t high, const char* key) const {
    while (low <= high) {
        const std::int32_t middle = low + (high - low) / 2;
        const std::int32_t order =
            compare(key, buffer.get() + entries[static_cast<std::size_t>(middle)].offset);
        if (order == 0) return middle;
        if (order == 1) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return ~low;
}

std::int32_t StringList::cmp(const char* key, const char* item) {
    return compareTexts(key, item, 1);
}

std::int32_t StringList::cmp_sw(const char* key, const char* item) {
    return compareTexts(key, item, 0);
}

}  // namespace KATD_SPACE
