// Making a catalogue file, and changing one in place.
#ifndef KATD_CATALOG_WRITER_H
#define KATD_CATALOG_WRITER_H

#include <lmdb.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Catalog.h"
#include "Format.h"
#include "Url.h"

namespace catalog {

// Where categories came from.
struct Source {
    std::string name;
    std::uint64_t lines = 0;
    std::uint64_t entries = 0;
};

// What the catalogue says of one entry.
struct Entry {
    bool instead = false;
    std::vector<Pair> pairs;

    bool operator==(const Entry& other) const;
};

using Sources = std::map<std::uint16_t, Source>;
using CategoryNames = std::map<std::uint16_t, std::string>;

// Gathers entries in memory and writes a file of them in one go.
class Builder {
public:
    static constexpr unsigned noCategory = 65536;

    Builder();
    ~Builder();
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    // Adds a category (or none) to an entry. Of two sources of a category the one that was added first stays.
    // Null, or the reason why the catalogue cannot hold the entry.
    const char* add(const Url& entry, unsigned category, std::uint16_t source, bool instead = false);

    struct Result {
        std::uint64_t entries = 0;
        std::uint64_t repeated = 0;  // additions that said nothing new
        std::uint64_t dropped = 0;   // categories beyond those that an entry can hold
        std::uint64_t compacted = 0;
    };

    // Orders what was added. Then next() walks through the records.
    void sort();
    // `compact`: leaves out entries that say no more than the entries above them do.
    // Writes a new file at `path`, which must not exist, and brings it to the disk; false with `failure` set
    // when it cannot, and what was written of the file is left to the caller. Call sort() before.
    bool write(const std::string& path, bool compact, const Sources& sources, const CategoryNames& names,
               Result* result, std::string* failure);

    // One key of the sorted additions.
    struct Item {
        std::string_view key;
        unsigned char flags = 0;
        std::vector<Pair> pairs;
    };
    // The next key in their order; false at the end. REQUIRES: sort() was called, and add() not since then.
    bool next(Item* item, Result* result);
    void rewind() { position_ = 0; }

private:
    struct Record;

    void addRecord(std::string_view key, unsigned category, std::uint16_t source, unsigned char flags);

    std::vector<std::unique_ptr<char[]>> blocks_;
    std::size_t used_ = 0;  // bytes of the last block
    std::uint64_t keyBytes_ = 0;
    std::vector<Record> records_;
    std::size_t position_ = 0;
    std::string lastHost_;  // whose record the last addition of a path made
};

// One transaction on an existing file. Nothing is seen of it before commit(), and nothing at all when it is
// not called. One at a time: another one's file is locked.
class Update {
public:
    enum Mode { writing, reading };

    // With `reading` nothing may be changed; it keeps writers out while it reads, as long as it may take.
    static std::unique_ptr<Update> open(const std::string& path, std::string* failure, Mode mode = writing);
    ~Update();
    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;

    // Below, failures of the file throw Failure.
    struct Failure {
        std::string text;
    };

    // The record with this key; false when there is no entry.
    bool get(const std::string& key, Entry* entry);
    // Stores the entry; `host` is the key of the host's record when `key` is that of a path record, else
    // empty.
    void put(const std::string& key, const std::string& host, const Entry& entry);
    void put(const Url& url, const Entry& entry);
    // False when there was none.
    bool erase(const std::string& key, const std::string& host);

    Sources sources();
    void setSource(std::uint16_t number, const Source& source);
    void eraseSource(std::uint16_t number);
    CategoryNames categoryNames();
    void setCategoryName(std::uint16_t number, const std::string& name);

    // Calls `see(key, value)` for all entries in the order of their keys.
    template <typename See>
    void forEach(See see) {
        forEachRecord([](void* context, std::string_view key,
                         const Value& value) { (*static_cast<See*>(context))(key, value); },
                      &see);
    }

    // Reads everything and compares it with what it should be. What is wrong, one sentence each, at most a
    // hundred.
    std::vector<std::string> check();

    const Header& header() const { return header_; }
    std::uint64_t written() const { return written_; }
    void commit();

private:
    Update() = default;

    struct Node;

    void check(int error) const;
    bool read(std::string_view key, std::string* value);
    bool readNode(std::string_view key, Node* node);
    void writeNode(std::string_view key, const Node& node);
    void changeBelow(std::string_view key, bool add);
    void setNode(std::string_view key, unsigned char set, unsigned char clear, const Entry* entry);
    bool hasBelow(std::string_view host, bool ports);
    void forEachRecord(void (*see)(void*, std::string_view, const Value&), void* context);

    std::string path_;
    int lock_ = -1;
    MDB_env* environment_ = nullptr;
    MDB_txn* transaction_ = nullptr;
    Header header_;
    std::uint64_t written_ = 0;
};

// The key under which the entry's own record lies, and its host's if that is another one, else empty.
struct EntryKeys {
    std::string own;
    std::string host;
};
// Null, or the reason why the catalogue cannot hold the entry.
const char* entryKeys(const Url& entry, EntryKeys* keys);

// The host's key of a path record's key.
std::string hostKeyOf(std::string_view pathKey);

// Takes the lock that writers of the file hold alone and long readers together; the descriptor, or -1 with
// `failure` set.
int lockCatalog(const std::string& path, Update::Mode mode, std::string* failure);

std::string sourceValue(const Source& source);
bool parseSource(std::string_view value, Source* source);
std::string headerValue(const Header& header);
std::string numberedKey(Record record, std::uint16_t number);
// A record's value; `ancestors` are their marks, the highest first.
std::string makeValue(unsigned flags, const std::vector<unsigned>& ancestors, const std::vector<Pair>& pairs,
                      char record);

}  // namespace catalog

#endif
