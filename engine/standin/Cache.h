// What the stand-in engine has learnt, and the file that it is saved in.
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

// Categories by normalised URL, up to a number of URLs. Any thread may use it; files are read and written
// without the lock, so that no other call waits for a disk.
//
// The file is text: the line "asapsdk-cache 1 COUNT CHECKSUM", then for each URL, learnt longest ago first,
// its categories with commas, a blank and the URL, escaped. COUNT is the number of these lines, CHECKSUM the
// 16 hexadecimal digits of the 64-bit FNV-1a sum of their bytes.
class Cache {
public:
    explicit Cache(std::size_t maxEntries) : maxEntries_(maxEntries) {}

    // Learns the categories of a URL, in place of older ones. When there are too many URLs, the one that was
    // learnt longest ago is forgotten.
    void learn(const std::string& url, const Categories& categories);

    // What was learnt for the URL.
    std::optional<Categories> find(const std::string& url) const;

    // Replaces everything by what the file holds. False, with nothing changed and `failure` set, when the
    // file cannot be read or is not whole.
    bool load(const std::string& path, Failure* failure);

    // Writes everything to the file; one half of it where `whole` is false. False, with `failure` set, when
    // it could not.
    bool save(const std::string& path, bool whole, Failure* failure) const;

private:
    struct Entry {
        std::string url;
        Categories categories;
    };
    using Entries = std::list<Entry>;  // learnt longest ago first

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
