// A list file that is searched without being loaded.
#ifndef KATD_TOOLS_LISTSCAN_H
#define KATD_TOOLS_LISTSCAN_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "StringList/ListFileReader.h"
#include "StringList/StringList.h"

namespace tools {

// Reads the file once, by the rules of StringList::load, and keeps the place of every 4096th item: 20 KB for
// 10,000,000 items. A search then reads some 20 short parts of the file. It costs a thousand times the time
// of a search in a loaded list, so load the list for many URLs. Not thread-safe. Throws std::bad_alloc.
class ListScan {
public:
    // An empty path stands for no list.
    explicit ListScan(const std::string& path);
    ListScan(const ListScan&) = delete;
    ListScan& operator=(const ListScan&) = delete;

    // Fills *list with the item that the binary search of the whole list ends at, or with none. list->loaded
    // is then what it would be after a load.
    void search(KATD_SPACE::StringList::Compare compare, const char* key, KATD_SPACE::StringList* list);

private:
    struct Place {
        std::int64_t offset;  // in the file
        std::int32_t left;    // bytes of the list's buffer from here on
    };
    enum class Step { item, end, refused };

    bool readHeader();
    void readItems();
    Step next(KATD_SPACE::ListFileReader* lines, std::int32_t* left);
    void readItem(std::int32_t index);

    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    std::int32_t count_ = 0;  // 0: katd refuses the file, or there is none
    std::int32_t size_ = 0;   // of the list's buffer
    std::vector<Place> places_;
    // The item that was read last. As large as the list's buffer, because an item may be, but only the pages
    // of the longest item are ever touched.
    std::unique_ptr<char[]> item_;
    std::uint32_t category_ = 0;
};

}  // namespace tools

#endif
