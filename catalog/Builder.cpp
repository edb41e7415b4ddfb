#include <endian.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>
#include <system_error>

#include "Writer.h"

namespace catalog {

namespace {

constexpr std::size_t blockSize = 4U << 20U;
constexpr std::uint64_t recordsPerCommit = 1000000;

// The header of an addition; its key follows.
struct Addition {
    std::uint32_t position;  // of its list
    std::uint32_t sequence;  // among those of one Builder
    std::uint32_t categoryAndFlags;
    std::uint16_t source;
    std::uint16_t keySize;

    unsigned category() const { return categoryAndFlags >> 8U; }
    unsigned char flags() const { return static_cast<unsigned char>(categoryAndFlags); }
    bool isBefore(const Addition& other) const {
        return position != other.position ? position < other.position : sequence < other.sequence;
    }
};
constexpr std::size_t additionSize = sizeof(Addition);
// Additions are in memory in the order of their arrival. Sorted access is random, so they are prefetched.
constexpr std::ptrdiff_t ahead = 16;
constexpr std::ptrdiff_t few = 64;  // to sort by comparisons

}  // namespace

// `chunk` holds eight bytes of the key, so that most comparisons need not dereference `data`.
struct Builder::Record {
    std::uint64_t chunk;
    const char* data;

    Addition addition() const {
        Addition result;
        std::memcpy(&result, data, additionSize);
        return result;
    }
    std::string_view key() const {
        const Addition head = addition();
        return {data + additionSize, head.keySize};
    }
    void load(std::size_t depth) {
        const std::string_view text = key();
        unsigned char bytes[8] = {};
        if (depth + 8 <= text.size()) {
            std::memcpy(bytes, text.data() + depth, 8);
        } else if (depth < text.size()) {
            std::memcpy(bytes, text.data() + depth, text.size() - depth);
        }
        std::memcpy(&chunk, bytes, 8);
        chunk = be64toh(chunk);
    }
    static bool less(const Record& a, const Record& b) {
        const int order = a.key().compare(b.key());
        return order != 0 ? order < 0 : a.addition().isBefore(b.addition());
    }
    // Sorts by the chunk's bits below `shift` + 8: first by their highest byte, then within each of its
    // values.
    static void sortChunks(Record* begin, Record* end, unsigned shift) {
        if (end - begin <= few) {
            std::sort(begin, end, [](const Record& a, const Record& b) { return a.chunk < b.chunk; });
            return;
        }
        const auto byteOf = [shift](const Record& record) { return record.chunk >> shift & 255U; };
        std::ptrdiff_t counts[256] = {};
        for (const Record* record = begin; record != end; ++record)
            ++counts[byteOf(*record)];
        Record* places[256];
        Record* ends[256];
        Record* place = begin;
        for (unsigned byte = 0; byte < 256; ++byte) {
            places[byte] = place;
            ends[byte] = place += counts[byte];
        }
        for (unsigned byte = 0; byte < 256; ++byte) {
            while (places[byte] != ends[byte]) {
                Record moved = *places[byte];
                for (std::uint64_t to = byteOf(moved); to != byte; to = byteOf(moved))
                    std::swap(moved, *places[to]++);
                *places[byte]++ = moved;
            }
            if (shift > 0 && counts[byte] > 1) sortChunks(ends[byte] - counts[byte], ends[byte], shift - 8);
        }
    }
    // Sorts those that have the same chunk as the first one, which is at `depth` of the key; returns their
    // end.
    static Record* sortGroup(Record* begin, Record* end, std::size_t depth) {
        Record* const next =
            std::find_if(begin, end, [&](const Record& r) { return r.chunk != begin->chunk; });
        if (next - begin == 1) return next;
        bool ended = next - begin <= 8;
        for (Record* record = begin; record != next; ++record) {
            if (next - record > ahead) __builtin_prefetch(record[ahead].data);
            ended = ended || record->addition().keySize <= depth + 8;
            record->load(depth + 8);
        }
        // A key that ends within its chunk may have the same chunk as a longer one.
        if (ended) {
            std::sort(begin, next, less);
        } else {
            sortChunks(begin, next, 56);
            while (begin != next)
                begin = sortGroup(begin, next, depth + 8);
        }
        return next;
    }
};

Builder::Builder() = default;

Builder::~Builder() {
    joinSorter();
}

void Builder::joinSorter() {
    if (sorter_.joinable()) sorter_.join();
}

const char* entryKeys(const Url& entry, EntryKeys* keys) {
    keys->own = hostKey(entry);
    keys->host.clear();
    if (entry.path.empty() && !entry.portGiven) return nullptr;
    if (entry.portGiven && entry.port == 0) return "its port is 0, which no URL has";
    keys->host.swap(keys->own);
    keys->own = pathKey(entry, entry.portGiven ? entry.port : 0);
    return keys->own.size() <= maxKey ? nullptr : "host and path are longer than the catalogue holds";
}

std::string hostKeyOf(std::string_view pathKey) {
    std::size_t base = pathBase(pathKey);
    if (pathKey[1] == '\0') {
        const std::size_t size = pathKey[2] == '4' ? 4 : 16;
        std::string key(1, networkRecord);
        key.append(pathKey.substr(2, 1 + size)).push_back(static_cast<char>(8 * size));
        return key;
    }
    const auto port = pathKey.find(keyPort, 1);
    if (port < base) base = port;
    return std::string(1, hostRecord).append(pathKey.substr(1, base - 1));
}

const char* Builder::add(const Url& entry, unsigned category, std::uint16_t source, bool instead) {
    if (entry.kind == Url::name && entry.path.empty() && !entry.portGiven) {
        // Nearly all entries.
        const unsigned flags = isEntry | (instead ? isInstead : 0U);
        addRecord(hostRecord, entry.host, category, source, static_cast<unsigned char>(flags));
        return nullptr;
    }
    EntryKeys keys;
    if (const char* const reason = entryKeys(entry, &keys)) return reason;
    if (!keys.host.empty()) {
        const unsigned char flag = entry.portGiven ? hasPorts : hasPaths;
        std::string host = keys.host;
        host.push_back(static_cast<char>(flag));
        if (host != lastHost_) addRecord(keys.host, noCategory, 0, flag);
        lastHost_.swap(host);
    }
    const unsigned flags = isEntry | (instead ? isInstead : 0U);
    addRecord(keys.own, category, source, static_cast<unsigned char>(flags));
    return nullptr;
}

void Builder::addRecord(std::string_view key, unsigned category, std::uint16_t source, unsigned char flags) {
    addRecord(key[0], key.substr(1), category, source, flags);
}

void Builder::addRecord(char record, std::string_view rest, unsigned category, std::uint16_t source,
                        unsigned char flags) {
    const std::size_t keySize = 1 + rest.size();
    const std::size_t size = additionSize + keySize;
    if (blocks_.empty() || used_ + size > blockSize) {
        blocks_.emplace_back(new char[blockSize]);
        used_ = 0;
    }
    char* const data = blocks_.back().get() + used_;
    used_ += size;
    Addition head{};
    head.position = position_;
    head.sequence = static_cast<std::uint32_t>(records_.size());
    head.categoryAndFlags = category << 8U | flags;
    head.source = source;
    head.keySize = static_cast<std::uint16_t>(keySize);
    std::memcpy(data, &head, additionSize);
    data[additionSize] = record;
    std::memcpy(data + additionSize + 1, rest.data(), rest.size());
    keyBytes_ += keySize;
    if (record == hostRecord) hosts_.push_back(HostHash::of(rest));
    Record added{0, data};
    added.load(0);
    records_.push_back(added);
}

void Builder::take(Builder* other) {
    // The last block is the one that addRecord() fills.
    blocks_.insert(blocks_.begin(), std::make_move_iterator(other->blocks_.begin()),
                   std::make_move_iterator(other->blocks_.end()));
    if (used_ == 0) used_ = blockSize;
    records_.insert(records_.end(), other->records_.begin(), other->records_.end());
    hosts_.insert(hosts_.end(), other->hosts_.begin(), other->hosts_.end());
    keyBytes_ += other->keyBytes_;
    other->blocks_.clear();
    other->records_.clear();
    other->hosts_.clear();
    other->keyBytes_ = 0;
}

void Builder::sort() {
    rewind();
    usable_ = sorted_ = 0;
    try {
        sorter_ = std::thread([this] { sortRecords(); });
    } catch (const std::system_error&) {
        sortRecords();
    }
}

void Builder::sortRecords() {
    constexpr std::ptrdiff_t step = 65536;  // records that are worth a message to the other thread
    Record* const begin = records_.data();
    Record* const end = begin + records_.size();
    Record::sortChunks(begin, end, 56);
    Record* told = begin;
    for (Record* group = begin; group != end;) {
        group = Record::sortGroup(group, end, 0);
        if (group - told < step && group != end) continue;
        told = group;
        const std::lock_guard<std::mutex> guard(sortedMutex_);
        sorted_ = static_cast<std::size_t>(group - begin);
        sortedMore_.notify_one();
    }
    // The other thread still has to write most of them.
    if (filter_) filter_->add(hosts_);
}

bool Builder::next(Item* item, Result* result) {
    if (next_ == records_.size()) {
        // The caller may want to be alone now, to block signals for instance.
        joinSorter();
        return false;
    }
    if (next_ == usable_) {
        std::unique_lock<std::mutex> lock(sortedMutex_);
        sortedMore_.wait(lock, [this] { return sorted_ > usable_; });
        usable_ = sorted_;
    }
    item->key = records_[next_].key();
    item->flags = 0;
    item->pairs.clear();
    // All additions with one key are in one group.
    for (; next_ < usable_ && records_[next_].key() == item->key; ++next_) {
        if (usable_ - next_ > static_cast<std::size_t>(ahead))
            __builtin_prefetch(records_[next_ + ahead].data);
        const Addition head = records_[next_].addition();
        const bool had = (item->flags & head.flags()) == head.flags();
        item->flags = static_cast<unsigned char>(item->flags | head.flags());
        if ((head.flags() & isEntry) == 0) continue;
        const Pair pair{static_cast<std::uint16_t>(head.category()), head.source};
        const bool known = head.category() == noCategory ||
                           std::find(item->pairs.begin(), item->pairs.end(), pair) != item->pairs.end();
        if (known && had) ++result->repeated;
        if (!known) item->pairs.push_back(pair);
    }
    result->dropped += limitPairs(&item->pairs);
    return true;
}

std::string makeValue(unsigned flags, const std::vector<unsigned>& ancestors, const std::vector<Pair>& pairs,
                      char record) {
    std::string value;
    const auto count = static_cast<unsigned>(ancestors.size());
    value.push_back(static_cast<char>(flags | std::min(count, manyAncestors) << ancestorShift));
    if (count >= manyAncestors) value.push_back(static_cast<char>(count));
    for (const unsigned ancestor : ancestors) {
        value.push_back(static_cast<char>(ancestor));
        if (bytesPerAncestor(record) == 2) value.push_back(static_cast<char>(ancestor >> 8U));
    }
    if (!pairs.empty())
        value.append(reinterpret_cast<const char*>(pairs.data()), pairs.size() * sizeof(Pair));
    return value;
}

namespace {

// Writes the new file. Throws LMDB's error codes.
class NewFile {
public:
    NewFile(const std::string& path, std::size_t mapSize) {
        check(mdb_env_create(&environment_));
        check(mdb_env_set_mapsize(environment_, mapSize));
        // NOSYNC: the file is synced once, before it is renamed into place.
        check(mdb_env_open(environment_, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK | MDB_NOSYNC | MDB_NOMEMINIT,
                           0644));
    }
    ~NewFile() {
        if (transaction_ != nullptr) mdb_txn_abort(transaction_);
        if (environment_ != nullptr) mdb_env_close(environment_);
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void append(std::string_view key, const std::string& value) { put(key, value, MDB_APPEND); }

    void put(std::string_view key, std::string_view value, unsigned flags = 0) {
        if (transaction_ == nullptr) begin();
        MDB_val name{key.size(), const_cast<char*>(key.data())};
        MDB_val data{value.size(), const_cast<char*>(value.data())};
        check(mdb_cursor_put(cursor_, &name, &data, flags));
        if (++records_ % recordsPerCommit == 0) commit();
    }

    void commit() {
        if (transaction_ == nullptr) return;
        mdb_cursor_close(cursor_);
        MDB_txn* const transaction = transaction_;
        transaction_ = nullptr;
        check(mdb_txn_commit(transaction));
    }

private:
    static void check(int error) {
        if (error != 0) throw error;
    }

    void begin() {
        check(mdb_txn_begin(environment_, nullptr, 0, &transaction_));
        MDB_dbi records = 0;
        check(mdb_dbi_open(transaction_, nullptr, 0, &records));
        check(mdb_cursor_open(transaction_, records, &cursor_));
    }

    MDB_env* environment_ = nullptr;
    MDB_txn* transaction_ = nullptr;
    MDB_cursor* cursor_ = nullptr;
    std::uint64_t records_ = 0;
};

// The ancestors of the current entry in its tree.
class Ancestors {
public:
    // Keeps only the ancestors of the key and recomputes marks().
    void descend(std::string_view key) {
        while (!levels_.empty() && !isAncestor(levels_.back().key, key))
            levels_.pop_back();
        marks_.clear();
        for (const Level& level : levels_)
            marks_.push_back(ancestorMark(level.key));
    }
    // The categories are for makeRedundant() alone.
    void push(const Builder::Item& item, bool withCategories) {
        levels_.push_back({item.key, item.flags, withCategories ? item.pairs : std::vector<Pair>()});
    }
    const std::vector<unsigned>& marks() const { return marks_; }

    // Whether every URL has the same answer without this entry, including the order of its categories. False
    // if an ancestor has paths or ports, because their entries rank between those of the hosts.
    bool makeRedundant(const Builder::Item& item) const {
        if ((item.flags & isInstead) != 0 || item.key[0] == pathRecord) return false;
        std::vector<std::uint16_t> above;
        bool covered = false;
        for (auto level = levels_.rbegin(); level != levels_.rend(); ++level) {
            if ((level->flags & (hasPaths | hasPorts)) != 0) return false;
            covered = covered || (level->flags & isEntry) != 0;
            for (const Pair& pair : level->pairs) {
                if (std::find(above.begin(), above.end(), pair.category) == above.end())
                    above.push_back(pair.category);
            }
            if ((level->flags & isInstead) != 0) break;
        }
        const auto own = categoriesOf(item.pairs);
        return covered && own.size() <= above.size() && std::equal(own.begin(), own.end(), above.begin());
    }

private:
    struct Level {
        std::string_view key;
        unsigned char flags;
        std::vector<Pair> pairs;
    };
    std::vector<Level> levels_;
    std::vector<unsigned> marks_;
};

bool syncFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return synced;
}

}  // namespace

bool Builder::write(const std::string& path, bool compact, const Sources& sources, const CategoryNames& names,
                    Result* result, std::string* failure, const std::string& memory) {
    const std::uint64_t bytes = keyBytes_ + 32U * records_.size();
    const std::uint64_t slack = sizeof(void*) == 4 ? bytes / 4 + (16U << 20U) : 3 * bytes + (256U << 20U);
    *result = Result();
    try {
        NewFile file(path, static_cast<std::size_t>(bytes + slack));
        Ancestors ancestors;
        Item item;
        std::vector<std::uint64_t> bySource(65536);
        filter_.emplace(hosts_.size());
        sort();
        while (next(&item, result)) {
            ancestors.descend(item.key);
            if (compact && (item.flags & isEntry) != 0 && ancestors.makeRedundant(item)) {
                ++result->compacted;
                item.flags &= static_cast<unsigned char>(~isEntry);
                item.pairs.clear();
                if ((item.flags & (hasPaths | hasPorts)) == 0) continue;
            }
            file.append(item.key, makeValue(item.flags, ancestors.marks(), item.pairs, item.key[0]));
            ancestors.push(item, compact);
            if ((item.flags & isEntry) != 0) ++result->entries;
            for (const Pair& pair : item.pairs)
                ++bySource[pair.source];
        }
        for (const auto& [number, source] : sources) {
            Source counted = source;
            counted.entries = bySource[number];
            file.put(numberedKey(sourceRecord, number), sourceValue(counted));
        }
        for (const auto& [number, name] : names)
            file.put(numberedKey(categoryRecord, number), name);
        if (!memory.empty() && result->dropped == 0)
            file.put(std::string(1, memoryRecord), memoryValue(0, memory));
        file.put(std::string(1, hostFilter), filter_->bytes());
        Header header;
        header.entries = result->entries;
        header.created = header.changed = static_cast<std::uint64_t>(std::time(nullptr));
        file.put(std::string(1, headerRecord), headerValue(header));
        file.commit();
    } catch (int error) {
        *failure = mdb_strerror(error);
        return false;
    }
    if (syncFile(path)) return true;
    *failure = std::strerror(errno);
    return false;
}

}  // namespace catalog
