// Reading a catalogue file while others replace it or write to it.
#ifndef KATD_CATALOG_CATALOG_H
#define KATD_CATALOG_CATALOG_H

#include <lmdb.h>
#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "Format.h"
#include "HostFilter.h"
#include "Url.h"

namespace catalog {

// The header record.
struct Header {
    std::uint64_t entries = 0;
    std::uint64_t created = 0;  // seconds since 1970
    std::uint64_t changed = 0;
    std::uint64_t changes = 0;  // number of updates since it was created
};

// An open catalogue file. Thread-safe; each thread needs its own Reader.
//
// Readers need no lock file and no write permission. LMDB does not reuse the pages of a version until the
// second commit after it. So a Reader compares version numbers after each look-up, and repeats the look-up if
// two or more commits have been made since its version.
class Catalog {
public:
    // Opens the file read-only. Checks its size, meta pages and header, but not its records, so the time does
    // not depend on the size. Null on failure; *failure then says what is wrong and what to do. REQUIRES:
    // installFaultGuard() was called.
    static std::shared_ptr<Catalog> open(const std::string& path, std::string* failure);
    ~Catalog();
    Catalog(const Catalog&) = delete;
    Catalog& operator=(const Catalog&) = delete;

    const std::string& path() const { return path_; }
    // Identify the file, as st_dev and st_ino do.
    dev_t device() const { return device_; }
    ino_t inode() const { return inode_; }
    // Size of the mapping in bytes. Open the file again before it grows beyond this.
    std::uint64_t mappedSize() const { return mappedSize_; }
    MDB_env* environment() const { return environment_; }
    // Where the file is mapped, and the size of its pages.
    std::uintptr_t mapping() const { return mapping_; }
    std::size_t pageSize() const { return pageSize_; }

private:
    Catalog() = default;

    std::string path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::uint64_t mappedSize_ = 0;
    MDB_env* environment_ = nullptr;
    std::uintptr_t mapping_ = 0;
    std::size_t pageSize_ = 0;
};

// An entry that covers a URL. Valid only during the call of Visit that gets it: it points into the mapping.
struct Covering {
    std::string_view key;
    const Value* value;
};

// The categories of a URL, most specific entry first.
struct Answer {
    static constexpr unsigned limit = 4096;  // further categories are dropped

    bool covered = false;  // at least one entry covers the URL; it may have no category
    unsigned count = 0;
    std::uint16_t categories[limit];

    // Adds a category, unless it is there already.
    void add(std::uint16_t category) {
        std::uint16_t* const end = categories + count;
        if (count < limit && std::find(categories, end, category) == end) categories[count++] = category;
    }
};

// Look-ups in a catalogue. Not thread-safe.
class Reader {
public:
    enum Status {
        done,
        damaged,  // the file is truncated or corrupt
        grown,    // the file has outgrown the mapping: open it again
    };

    explicit Reader(std::shared_ptr<Catalog> catalog);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    using Visit = bool (*)(void* context, const Covering& covering);
    using Restart = void (*)(void* context);

    // Calls see(context, covering) for each entry that covers the URL, until it returns false. The order is
    // by host, longest first; then by path, longest first; then with a port before without. Entries after one
    // marked "instead" are included. If a writer overtakes the look-up, calls restart(context) and starts
    // from the first entry again. Both functions run in a guarded section (Guard.h).
    Status visit(const Url& url, Visit see, Restart restart, void* context);

    // The union of the categories of the entries that cover the URL, down to the first one marked "instead".
    Status classify(const Url& url, Answer* answer);

    Status header(Header* header);

    const std::shared_ptr<Catalog>& catalog() const { return catalog_; }

private:
    struct Request;
    struct Hits;

    Status run(Request* request);
    static void runBody(void* request);
    void endTransaction();
    // The functions from here on run in the guarded section.
    bool begin();
    bool readFilter(char record, HostFilter* filter);
    bool search(Request* request);
    bool findHosts(const Url& url, Hits* hits);
    bool searchHosts(const Url& url, const HostFilter& filter, Hits* hits);
    bool searchNetworks(const Url& url, Hits* hits);
    bool findPaths(const Url& url, bool recentToo, unsigned port, Hits* hits);
    bool searchPaths(const Url& url, Hits* hits);
    template <class Covers>
    bool addCovering(const MDB_val& key, const MDB_val& data, const Covers& covers, Hits* hits);
    bool predecessor(MDB_val* key, MDB_val* value);
    bool isOnLeaf(const void* record) const;
    bool get(std::string_view key, Value* value);
    std::uint64_t lastVersion() const;

    // A name above the host, or the host itself.
    struct Name {
        std::size_t keySize;
        std::uint32_t hash;
    };
    static constexpr unsigned maxNames = 128;

    const std::shared_ptr<Catalog> catalog_;
    MDB_txn* transaction_ = nullptr;
    MDB_cursor* cursor_ = nullptr;
    bool live_ = false;          // the transaction is open on a version
    std::uint64_t version_ = 0;  // the version that the transaction sees
    bool overtaken_ = false;
    Status status_ = done;
    bool filtersRead_ = false;
    HostFilter hosts_;        // of the transaction's version
    HostFilter recentHosts_;  // exists if there are recent records
    std::string hostKey_;
    Name names_[maxNames];  // shortest first
    unsigned nameCount_ = 0;
    std::unique_ptr<Hits[]> hits_;
};

}  // namespace catalog

#endif
