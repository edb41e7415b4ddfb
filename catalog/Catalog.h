// Reading a catalogue file while others replace it or write to it.
#ifndef KATD_CATALOG_CATALOG_H
#define KATD_CATALOG_CATALOG_H

#include <lmdb.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "Format.h"
#include "Url.h"

namespace catalog {

// Facts of the whole catalogue, in its header record.
struct Header {
    std::uint64_t entries = 0;
    std::uint64_t created = 0;  // seconds since 1970
    std::uint64_t changed = 0;
    std::uint64_t changes = 0;  // number of updates since it was created
};

// One open file. Any number of threads may use it, each through a Reader of its own.
//
// The file needs no lock file and no right to write. A writer of LMDB uses the pages of a version again two
// versions later at the earliest: a reader that finds afterwards that at most one version was added has seen
// its version whole, and begins anew otherwise.
class Catalog {
public:
    // Opens the file read-only and looks at its ends and header, not at its records: the time does not depend
    // on its size. Null on failure, with a sentence that says what to do. REQUIRES: installFaultGuard() was
    // called.
    static std::shared_ptr<Catalog> open(const std::string& path, std::string* failure);
    ~Catalog();
    Catalog(const Catalog&) = delete;
    Catalog& operator=(const Catalog&) = delete;

    const std::string& path() const { return path_; }
    // Which file it is, see stat(2).
    dev_t device() const { return device_; }
    ino_t inode() const { return inode_; }
    // Bytes of the mapping; a file that grows towards it should be opened again.
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

// An entry that covers a URL. Points into the file.
struct Covering {
    std::string_view key;
    const Value* value;
};

// What the catalogue has for a URL.
struct Answer {
    static constexpr unsigned limit = 4096;  // categories beyond are left out

    bool covered = false;  // by at least one entry, which may have no category
    unsigned count = 0;
    std::uint16_t categories[limit];
};

// One thread's way into a catalogue.
class Reader {
public:
    enum Status {
        done,
        damaged,  // the file was cut or changed by other means than the catalogue's tools
        grown,    // beyond the mapping: open it again
    };

    explicit Reader(std::shared_ptr<Catalog> catalog);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    using Visit = bool (*)(void* context, const Covering& covering);
    using Restart = void (*)(void* context);

    // Calls see(context, covering) for the entries that cover the URL, the most specific one first, until it
    // returns false: first those of the longest host, of these the ones with the longest path, of these the
    // ones with a port. May begin anew and then calls restart(context) first. The functions run in a guarded
    // section (see Guard.h) and see entries behind one marked "instead" too.
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
    // Below: in the guarded section.
    bool begin();
    bool search(Request* request);
    bool searchPaths(const Url& url, unsigned port, Hits* hits);
    bool searchHosts(const Url& url, Hits* hits);
    bool predecessor(MDB_val* key, MDB_val* value);
    bool isOnLeaf(const void* key) const;
    bool get(std::string_view key, Value* value);
    std::uint64_t lastVersion() const;

    const std::shared_ptr<Catalog> catalog_;
    MDB_txn* transaction_ = nullptr;
    MDB_cursor* cursor_ = nullptr;
    bool live_ = false;          // the transaction is renewed
    std::uint64_t version_ = 0;  // that it sees
    bool overtaken_ = false;
    Status status_ = done;
    std::string hostKey_;
    std::string pathKey_;
    std::unique_ptr<Hits[]> hits_;
};

}  // namespace catalog

#endif
