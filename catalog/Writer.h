// Builds catalogue files and changes them in place.
#ifndef KATD_CATALOG_WRITER_H
#define KATD_CATALOG_WRITER_H

#include <lmdb.h>

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Catalog.h"
#include "Format.h"
#include "Pages.h"
#include "Url.h"

namespace catalog {

// An input that categories came from.
struct Source {
    std::string name;
    std::uint64_t lines = 0;
    std::uint64_t entries = 0;
};

// The contents of one entry.
struct Entry {
    bool instead = false;
    std::vector<Pair> pairs;

    bool operator==(const Entry& other) const;
};

using Sources = std::map<std::uint16_t, Source>;
using CategoryNames = std::map<std::uint16_t, std::string>;

// Collects entries in memory and writes them to a new file.
class Builder {
public:
    static constexpr unsigned noCategory = 65536;

    Builder();
    ~Builder();
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    // Adds a category, or none, to an entry. An entry keeps each category once for each source. Null on
    // success, else a phrase that says why the catalogue cannot hold the entry.
    const char* add(const Url& entry, unsigned category, std::uint16_t source, bool instead = false);
    // The additions that follow rank behind those of lists with lower positions, whatever is added first. Of
    // one position, they rank in the order of their calls. Initially 0.
    void beginList(std::uint32_t position) { position_ = position; }
    // Adds what `other` has, which is empty then. For threads that read lists with a Builder each. REQUIRES:
    // the two have no positions in common.
    void take(Builder* other);

    struct Result {
        std::uint64_t entries = 0;
        std::uint64_t repeated = 0;  // additions that changed nothing
        std::uint64_t dropped = 0;   // beyond maxPairs of an entry
        std::uint64_t compacted = 0;
    };

    // Writes and syncs a new file at `path`, which must not exist. `compact` leaves out entries that add
    // nothing to the entries above them. Update::memory() returns `memory`, unless categories were dropped.
    // False with *failure set if it fails; the caller then removes the incomplete file.
    bool write(const std::string& path, bool compact, const Sources& sources, const CategoryNames& names,
               Result* result, std::string* failure, const std::string& memory = {});

    // Sorts the additions, for next(), in a thread of its own: next() waits for what it needs. Call it once,
    // after the last add().
    void sort();

    // All additions with one key, merged.
    struct Item {
        std::string_view key;
        unsigned char flags = 0;
        std::vector<Pair> pairs;
    };
    // The next key in order; false at the end. Throws what ended the sorting. REQUIRES: sort() was called.
    bool next(Item* item, Result* result);
    void rewind() { next_ = 0; }

private:
    struct Node;

    void addRecord(std::string_view key, unsigned category, std::uint16_t source, unsigned char flags);
    // The same for a key in two pieces.
    void addRecord(char record, std::string_view rest, unsigned category, std::uint16_t source,
                   unsigned char flags);
    void sortNodes(const std::vector<Node*>& nodes, std::size_t depth, std::size_t* done);
    void sortAdditions(const std::vector<Node*>& nodes, std::size_t depth, std::size_t* done);
    void tellSorted(std::size_t count);
    void joinSorter();

    std::vector<std::unique_ptr<Node>> roots_;  // add() uses the first one; the others are those of take()
    std::size_t count_ = 0;                     // additions
    std::uint64_t keyBytes_ = 0;
    std::uint64_t hostCount_ = 0;            // additions of hosts
    std::unique_ptr<const char*[]> order_;   // all additions in order
    std::optional<HostFilterWords> filter_;  // for write(); complete when next() has returned false
    std::uint32_t position_ = 0;             // of the list at hand
    std::size_t next_ = 0;                   // what next() returns
    std::string lastHost_;                   // the host whose record was added for the last path

    std::thread sorter_;
    std::mutex sortedMutex_;
    std::condition_variable sortedMore_;
    std::size_t sorted_ = 0;             // entries of order_ that are final; guarded by sortedMutex_
    std::size_t usable_ = 0;             // the value of sorted_ that next() knows
    std::exception_ptr sortingFailure_;  // why no more will be sorted; guarded by sortedMutex_
};

// One transaction on an existing file. Changes become visible with commit() and are dropped without it. The
// file is locked against other writers.
class Update {
public:
    enum Mode { writing, reading };

    // With `reading`, changes are not allowed, and writers are locked out until the object is destroyed.
    static std::unique_ptr<Update> open(const std::string& path, std::string* failure, Mode mode = writing);
    ~Update();
    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;

    // The functions below throw this if the file cannot be read or written.
    struct Failure {
        std::string text;
    };

    // What the file has for a key; the record may say that there is no entry.
    struct Known {
        enum Layer { nothing, lasting, recent } layer = nothing;
        Flags flags = 0;
    };

    // Walks over the records as they were before this transaction, in the order of their keys. commit() ends
    // that.
    class Records {
    public:
        explicit Records(const Update& update);

        // Moves to the next record, at first to the first one; false at the end.
        bool next();
        // Of the record moved to, until the next move; the record may say that there is no entry. The key is
        // that of a lasting record.
        std::string_view key() const { return key_; }
        const Value& value() const { return value_; }
        Known known() const { return {passRecent_ ? Known::recent : Known::lasting, value_.flags}; }

    private:
        const Update& update_;
        RecordWalk lasting_;
        RecordWalk recent_;
        bool moreLasting_ = false;
        bool moreRecent_ = false;
        bool passLasting_ = false;  // next() has returned the record that this walk is at
        bool passRecent_ = false;
        std::string recentKey_;  // of the record that recent_ is at
        std::string_view key_;
        Value value_;
    };

    // The entry with this key; false if there is none.
    bool get(const std::string& key, Entry* entry);
    // Stores the entry. `key` and `host` are those of EntryKeys. `known`, from Records, spares a search. Null
    // means unknown, anything else that the entry differs.
    void put(const std::string& key, const std::string& host, const Entry& entry,
             const Known* known = nullptr);
    void put(const Url& url, const Entry& entry);
    // False if there was none.
    bool erase(const std::string& key, const std::string& host, const Known* known = nullptr);

    Sources sources();
    void setSource(std::uint16_t number, const Source& source);
    void eraseSource(std::uint16_t number);
    CategoryNames categoryNames();
    void setCategoryName(std::uint16_t number, const std::string& name);
    void eraseCategoryName(std::uint16_t number);

    // What the last writer of the file stored; empty if it stored nothing.
    std::string memory();
    // Stores it with the next commit(), which must follow.
    void setMemory(const std::string& memory);

    // Calls see(key, value) for all entries, as they were before this transaction, in the order of their
    // keys.
    template <typename See>
    void forEach(See see) {
        for (Records records(*this); records.next();) {
            if ((records.value().flags & isEntry) != 0) see(records.key(), records.value());
        }
    }

    // Checks all records. Returns one sentence for each error, at most a hundred.
    std::vector<std::string> check();

    const Header& header() const { return header_; }
    // Number of records that were written or removed.
    std::uint64_t written() const { return written_; }
    void commit();

    // A change is stored in a recent record. When these are too many, commit() replaces the lasting ones by
    // them. A transaction of about so many changes that this must be does better without recent records.
    void expectChanges(std::uint64_t count);

private:
    Update() = default;

    struct Node;

    void check(int error) const;
    bool read(std::string_view key, std::string* value);
    void write(std::string_view key, std::string_view value);
    void remove(std::string_view key);
    // These read and write the record with just this key.
    bool readStored(std::string_view key, Node* node);
    void writeStored(std::string_view key, const Node& node);
    void insert(std::string_view key, Node node);
    void changeBelow(std::string_view key, bool add);
    // These regard the recent record first. Keys are those of lasting records.
    Known::Layer readNode(std::string_view key, Node* node);
    Known::Layer readNode(std::string_view key, const Known* known, Node* node);
    void writeNode(std::string_view key, Known::Layer layer, Node node);
    void setHostFlags(std::string_view host, unsigned set, unsigned clear);
    bool hasBelow(std::string_view host, bool ports);
    void writeLasting(std::string_view key, bool exists, Node node);
    // More would make look-ups slower than the merges that they spare are worth.
    std::uint64_t mostRecent() const { return header_.entries / 8; }
    void finishRecent();
    void mergeRecent();
    void writeHostFilter();
    std::vector<std::string> checkStored();

    std::string path_;
    int lock_ = -1;
    std::shared_ptr<Catalog> catalog_;
    MDB_env* environment_ = nullptr;
    MDB_txn* transaction_ = nullptr;
    Header header_;
    bool hasRecent_ = false;
    bool isDirect_ = false;  // changes lasting records
    // Hosts that may have no paths any more. commit() finds out once for each: it may have to pass many that
    // are gone.
    std::set<std::string> lostPaths_;
    std::uint64_t written_ = 0;
};

inline bool Update::Records::next() {
    if (passLasting_) moreLasting_ = lasting_.next();
    if (passRecent_) {
        moreRecent_ = recent_.next() && isRecent(recent_.key());
        if (moreRecent_) recentKey_ = withCase(recent_.key(), false);
    }
    if (lasting_.isDamaged() || recent_.isDamaged()) update_.check(MDB_CORRUPTED);
    if (!moreLasting_ && !moreRecent_) return false;
    const int order = !moreRecent_ ? -1 : !moreLasting_ ? 1 : lasting_.key().compare(recentKey_);
    passLasting_ = order <= 0;
    passRecent_ = order >= 0;
    key_ = passRecent_ ? recentKey_ : lasting_.key();
    const std::string_view value = (passRecent_ ? recent_ : lasting_).value();
    if (!value_.parse(value.data(), value.size(), key_[0])) update_.check(MDB_CORRUPTED);
    return true;
}

// The key of an entry's record. `host` is the key of its host's record if the entry has a path or port, else
// empty.
struct EntryKeys {
    std::string own;
    std::string host;
};
// Null on success, else a phrase that says why the catalogue cannot hold the entry.
const char* entryKeys(const Url& entry, EntryKeys* keys);

// The key of the host's record, from that of one of its paths.
std::string hostKeyOf(std::string_view pathKey);

// Takes the lock that writers of the file hold alone and long readers together; the descriptor, or -1 with
// `failure` set.
int lockCatalog(const std::string& path, Update::Mode mode, std::string* failure);

// The categories, each once, in the order of their first pairs.
std::vector<std::uint16_t> categoriesOf(const std::vector<Pair>& pairs);
// Drops pairs until there are maxEntryCategories: first, from the end, those whose category is repeated.
// Returns how many.
std::size_t limitPairs(std::vector<Pair>* pairs);

std::string sourceValue(const Source& source);
bool parseSource(std::string_view value, Source* source);
std::string headerValue(const Header& header);
// `changes` are those of the file's header after this change.
std::string memoryValue(std::uint64_t changes, const std::string& memory);
std::string numberedKey(Record record, std::uint16_t number);
// Encodes a value; `ancestors` are marks, shortest first.
std::string makeValue(unsigned flags, const std::vector<unsigned>& ancestors, const std::vector<Pair>& pairs,
                      char record);

}  // namespace catalog

#endif
