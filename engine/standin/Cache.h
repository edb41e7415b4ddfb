// The categories that the stand-in engine has learnt, and their file.
#ifndef ASAPSDK_CACHE_H
#define ASAPSDK_CACHE_H

#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Text.h"

namespace asapsdk {

// Categories by normalised URL, for a limited number of URLs. Thread-safe. File I/O happens without the lock,
// so that no other call waits for the disk.
//
// The file is text: the line "asapsdk-cache 1 COUNT CHECKSUM", then a line for each URL, oldest first: its
// categories separated by commas, a blank, and the escaped URL. COUNT is the number of these lines, CHECKSUM
// the 64-bit FNV-1a hash of their bytes in 16 hexadecimal digits.
class Cache {
public:
    explicit Cache(std::size_t maxEntries) : maxEntries_(maxEntries) {}

    // Learns the categories of a URL, replacing older ones. If the cache is full, the oldest URL is removed.
    void learn(const std::string& url, const Categories& categories);

    // The categories learnt for the URL.
    std::optional<Categories> find(const std::string& url) const;

    // Replaces the contents by those of the file. Returns false, with nothing changed and `failure` set, if
    // the file cannot be read or is damaged.
    bool load(const std::string& path, Failure* failure);

    // Writes the contents to the file, or only half of the file if `whole` is false. Returns false, with
    // `failure` set, if that fails.
    bool save(const std::string& path, bool whole, Failure* failure) const;

private:
    struct Entry {
        std::string url;
        Categories categories;
    };
    using Entries = std::list<Entry>;  // oldest first

    // REQUIRES: mutex_ is held.
    void learnLocked(const std::string& url, const Categories& categories);

    static bool parse(std::string_view text, Entries* entries);

    const std::size_t maxEntries_;  // 0: learns nothing
    mutable std::mutex mutex_;
    Entries entries_;                                           // guarded by mutex_
    std::unordered_map<std::string, Entries::iterator> byUrl_;  // guarded by mutex_
};

}  // namespace asapsdk

#endif
