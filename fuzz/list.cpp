// Loads list files and searches them.
// Input: the key in the first line, then the file.
#include <algorithm>
#include <new>
#include <vector>

#include "Fuzz.h"
#include "StringList/StringList.h"

using namespace katd_fuzz;
using KATD_SPACE::StringList;

namespace {

constexpr std::int64_t memory = 1 << 20;  // limit for one allocation of a list, in bytes

bool haveHeads = true;

struct Item {
    std::string text;
    std::uint32_t category;
};

std::int64_t numberAtStart(const std::string& text) {
    std::size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    std::int64_t number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        number = std::min<std::int64_t>(number * 10 + (text[at] - '0'), std::int64_t{1} << 31);
    return std::clamp<std::int64_t>(negative ? -number : number, INT32_MIN, INT32_MAX);
}

// The next line with its line feed, cut to a number of characters.
std::string takePart(std::string& file, std::int64_t limit) {
    const std::size_t line = std::min(file.find('\n'), file.size() - 1) + 1;
    const std::string part = file.substr(0, std::min(line, static_cast<std::size_t>(limit)));
    file.erase(0, part.size());
    return part;
}

// What the list holds after loading the file; nothing if that fails.
std::vector<Item> itemsOf(std::string file) {
    const std::string header = trimmed(upToZero(takePart(file, 1023)));
    const std::size_t bar = header.find('|');
    if (bar == std::string::npos || bar + 1 == header.size()) return {};
    const std::int64_t count = numberAtStart(header);
    const std::int64_t room = numberAtStart(header.substr(bar + 1)) + 3;
    if (count < 1 || room < 4 || room > memory) return {};
    if (count * static_cast<std::int64_t>(sizeof(StringList::Entry)) > memory) return {};

    std::vector<Item> items;
    std::int64_t used = 0;
    while (static_cast<std::int64_t>(items.size()) < count) {
        const std::string category = takePart(file, 4);
        if (category.size() < 4 || category[3] != '|') break;
        if (used >= room) return {};
        const std::string text = takePart(file, room - used - 1);
        if (text.empty()) break;
        // An item keeps its leading blanks.
        const std::string kept = upToZero(text);
        items.push_back({kept.substr(0, kept.find_last_not_of(" \t\r\n") + 1),
                         static_cast<std::uint32_t>(numberAtStart(upToZero(category.substr(0, 3))))});
        used += static_cast<std::int64_t>(items.back().text.size()) + 1;
    }
    return items;
}

int compare(const std::string& key, const std::string& item) {
    const auto isLess = [](char a, char b) {
        return static_cast<signed char>(a) < static_cast<signed char>(b);
    };
    if (key == item) return 0;
    return std::lexicographical_compare(key.begin(), key.end(), item.begin(), item.end(), isLess) ? -1 : 1;
}

int compareStart(const std::string& key, const std::string& item) {
    return startsWith(key, item) ? 0 : compare(key, item);
}

using Compare = int (*)(const std::string& key, const std::string& item);

std::int32_t search(const std::vector<Item>& items, Compare order, std::int32_t low, std::int32_t high,
                    const std::string& key) {
    if (low > high) return ~low;
    const std::int32_t middle = (low + high) / 2;
    const int result = order(key, items[static_cast<std::size_t>(middle)].text);
    if (result == 0) return middle;
    if (result == 1) return search(items, order, middle + 1, high, key);
    return low == high ? ~low : search(items, order, low, middle - 1, key);
}

void requireFound(const std::vector<Item>& items, std::int32_t index, const char* text,
                  std::uint32_t category) {
    REQUIRE((text != nullptr) == (index >= 0));
    if (text == nullptr) {
        REQUIRE(category == 1234);
        return;
    }
    REQUIRE(text == items[static_cast<std::size_t>(index)].text);
    REQUIRE(category == items[static_cast<std::size_t>(index)].category);
}

void requireLookUps(const StringList& list, const std::vector<Item>& items, const std::string& key,
                    bool sorted) {
    const std::int32_t last = list.count - 1;
    const std::int32_t exact = search(items, compare, 0, last, key);
    const std::int32_t start = search(items, compareStart, 0, last, key);
    REQUIRE(list.find_i(StringList::cmp, 0, last, key.c_str()) == exact);
    REQUIRE(list.find_i(StringList::cmp_sw, 0, last, key.c_str()) == start);
    std::uint32_t category = 1234;
    const char* text = list.find(key.c_str(), &category);
    requireFound(items, exact, text, category);
    category = 1234;
    text = list.find_sw(key.c_str(), &category);
    requireFound(items, start, text, category);
    if (!sorted) return;
    const bool listed =
        std::any_of(items.begin(), items.end(), [&](const Item& item) { return item.text == key; });
    REQUIRE(listed == (exact >= 0));
}

}  // namespace

// A file may announce any size. The limit makes every machine refuse the same ones.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return size > static_cast<std::size_t>(memory) ? nullptr : ::operator new[](size);
}

// Only the heads of a list use aligned allocation. They may be refused memory.
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return haveHeads ? ::operator new[](size, alignment) : nullptr;
}

static void requireList(const char* path, const std::vector<Item>& items, const std::string& key) {
    StringList list;
    REQUIRE(list.load(path) == !items.empty());
    REQUIRE(list.loaded == !items.empty());
    REQUIRE(list.count == static_cast<std::int32_t>(items.size()));
    for (std::size_t i = 0; i < items.size(); ++i) {
        REQUIRE(list.buffer.get() + list.entries[i].offset == items[i].text);
        REQUIRE(list.entries[i].category == items[i].category);
    }
    const bool sorted = std::is_sorted(
        items.begin(), items.end(), [](const Item& a, const Item& b) { return compare(a.text, b.text) < 0; });
    requireLookUps(list, items, key, sorted);
    for (const Item& item : items) {
        requireLookUps(list, items, item.text, sorted);
        requireLookUps(list, items, item.text + key, sorted);
    }
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static InputFile file;
    formatMessages();
    std::string text = bytesOf(data, size);
    const std::string key = upToZero(takeLine(text));
    file.write(text);
    const std::vector<Item> items = itemsOf(text);
    for (const bool have : {true, false}) {
        haveHeads = have;
        requireList(file.path(), items, key);
    }
    return 0;
}
