#include "tools/ListScan.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <new>
#include <system_error>

#include "KatdUtil/Utils.h"

namespace tools {

using KATD_SPACE::ListFileReader;
using KATD_SPACE::StringList;
using KATD_SPACE::Utils;

namespace {

constexpr std::int32_t itemsPerPlace = 4096;
constexpr std::int32_t spareBytes = 3;  // of the list's buffer, beyond the size in the first line

std::FILE* openRegular(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) ? std::fopen(path.c_str(), "re") : nullptr;
}

}  // namespace

ListScan::ListScan(const std::string& path) : file_(openRegular(path), std::fclose) {
    if (file_ == nullptr || !readHeader()) return;
    item_.reset(new (std::nothrow) char[static_cast<std::size_t>(size_)]);
    if (item_ != nullptr) readItems();
}

bool ListScan::readHeader() {
    char line[1024];
    if (std::fgets(line, sizeof line, file_.get()) == nullptr) return false;
    Utils::trim(line);
    const char* const bar = std::strchr(line, '|');
    if (bar == nullptr || bar[1] == '\0') return false;
    count_ = Utils::toInt32(line);
    size_ = Utils::toInt32(bar + 1);
    const bool isRight =
        count_ >= 1 && size_ >= 1 && size_ <= std::numeric_limits<std::int32_t>::max() - spareBytes;
    size_ = isRight ? size_ + spareBytes : 0;
    if (!isRight) count_ = 0;
    return isRight;
}

void ListScan::readItems() {
    const std::int32_t most = count_;
    std::int32_t left = size_;
    Step step = Step::item;
    for (count_ = 0; step == Step::item && count_ < most;) {
        places_.push_back({ftello(file_.get()), left});
        // Moves the file behind the last line that was taken when it is destroyed.
        ListFileReader lines(file_.get());
        const std::int32_t end = count_ + std::min(itemsPerPlace, most - count_);
        while (count_ < end && (step = next(&lines, &left)) == Step::item)
            ++count_;
    }
    if (step == Step::refused) count_ = 0;
}

ListScan::Step ListScan::next(ListFileReader* lines, std::int32_t* left) {
    if (!lines->takeCategory(&category_)) return Step::end;
    if (*left <= 0) return Step::refused;
    if (*left < 2) return Step::end;
    const std::int32_t length = lines->takeText(item_.get(), *left);
    if (length < 0) return Step::end;
    *left -= length + 1;
    return Step::item;
}

void ListScan::readItem(std::int32_t index) {
    const Place& place = places_[static_cast<std::size_t>(index / itemsPerPlace)];
    std::int32_t left = place.left;
    item_[0] = '\0';
    if (fseeko(file_.get(), place.offset, SEEK_SET) != 0) return;
    ListFileReader lines(file_.get());
    for (std::int32_t i = index % itemsPerPlace; i >= 0; --i) {
        // Somebody changes the file. katd would not see this item either.
        if (next(&lines, &left) != Step::item) item_[0] = '\0';
    }
}

void ListScan::search(StringList::Compare compare, const char* key, StringList* list) {
    list->reset();
    list->loaded = count_ > 0;
    for (std::int32_t low = 0, high = count_ - 1; low <= high;) {
        const std::int32_t middle = low + (high - low) / 2;
        readItem(middle);
        const std::int32_t order = compare(key, item_.get());
        if (order == 0) {
            const std::size_t size = std::strlen(item_.get()) + 1;
            list->buffer.reset(new char[size]);
            std::memcpy(list->buffer.get(), item_.get(), size);
            list->entries.reset(new StringList::Entry[1]{{0, category_}});
            list->bufferSize = static_cast<std::int32_t>(size);
            list->count = 1;
            return;
        }
        if (order == 1) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
}

}  // namespace tools
