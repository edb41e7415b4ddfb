#ifndef KATD_BENCH_PLAINLIST_H
#define KATD_BENCH_PLAINLIST_H

#include <cstdint>
#include <memory>
#include <string>

namespace bench {

// A list in the plainest form: the file is read in blocks, each item is copied once, and the search is a
// plain binary search. The baseline for searching and loading, and the database of the ideal helper.
class PlainList {
public:
    // Reads a list file of katd. Ends the process on failure.
    explicit PlainList(const std::string& path);

    // Index of the item that equals the key, or is a prefix of it; negative if the search finds none.
    std::int32_t find(const char* key) const { return search(compare, key); }
    std::int32_t findPrefix(const char* key) const { return search(comparePrefix, key); }

    std::int32_t size() const { return count_; }
    const char* text(std::int32_t index) const { return texts_.get() + entry(index).offset; }
    std::uint32_t category(std::int32_t index) const { return entry(index).category; }

private:
    struct Entry {
        std::int32_t offset;
        std::uint32_t category;
    };
    using Compare = std::int32_t (*)(const char* key, const char* item);

    static std::int32_t compare(const char* key, const char* item);
    static std::int32_t comparePrefix(const char* key, const char* item);
    std::int32_t search(Compare compare, const char* key) const;
    const char* takeLine(const char* line, const char* next, const std::string& path);
    const Entry& entry(std::int32_t index) const { return entries_[static_cast<std::size_t>(index)]; }

    std::unique_ptr<char[]> texts_;
    std::unique_ptr<Entry[]> entries_;
    std::uint32_t size_ = 0;  // of the items in bytes, from the file's first line
    std::uint32_t used_ = 0;  // bytes used so far
    std::uint32_t room_ = 0;  // entries, from the file's first line
    std::int32_t count_ = 0;
};

}  // namespace bench

#endif
