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

Addition additionOf(const char* data) {
    Addition result;
    std::memcpy(&result, data, additionSize);
    return result;
}

std::string_view keyOf(const char* data) {
    return {data + additionSize, additionOf(data).keySize};
}

// Where an addition is looked at, a later one is prefetched.
constexpr std::size_t ahead = 16;
constexpr std::size_t fewAdditions = 256U << 10U;  // bytes that are sorted without dividing them before
constexpr std::size_t deepest = 64;                // bytes of a key that divide

}  // namespace

// Additions whose keys begin alike, one behind the other. As soon as they are too many for a processor's
// cache, they are divided by the next byte of their keys, so that sorting never looks at memory far away.
struct Builder::Node {
    std::string additions;
    std::unique_ptr<Node[]> children;  // if they were divided; the first one has the keys that end here

    bool isEmpty() const { return additions.empty() && !children; }
    // The one for a key. REQUIRES: there are children, and the key has at least `depth` bytes.
    Node& child(std::string_view key, std::size_t depth) const {
        return children[depth < key.size() ? 1U + static_cast<unsigned char>(key[depth]) : 0U];
    }
    static constexpr std::size_t childCount = 257;

    template <typename See>
    void forEach(See see) const {
        for (std::size_t at = 0; at < additions.size();) {
            const char* const data = additions.data() + at;
            see(data);
            at += additionSize + keyOf(data).size();
        }
    }
    // `depth` is the number of bytes in which the keys are alike.
    void divide(std::size_t depth) {
        children.reset(new Node[childCount]);
        forEach([&](const char* data) {
            const std::string_view key = keyOf(data);
            child(key, depth).additions.append(data, additionSize + key.size());
        });
        std::string().swap(additions);
    }
};

namespace {

// `chunk` holds the eight bytes of the key in which it may differ from others, so that most comparisons need
// nothing else.
struct Sortable {
    std::uint64_t chunk;
    const char* data;

    Sortable(const char* addition, std::size_t depth) : data(addition) {
        const std::string_view text = keyOf(addition);
        unsigned char bytes[8] = {};
        if (depth + 8 <= text.size()) {
            std::memcpy(bytes, text.data() + depth, 8);
        } else if (depth < text.size()) {
            std::memcpy(bytes, text.data() + depth, text.size() - depth);
        }
        std::memcpy(&chunk, bytes, 8);
        chunk = be64toh(chunk);
    }
    bool operator<(const Sortable& other) const {
        if (chunk != other.chunk) return chunk < other.chunk;
        const int order = keyOf(data).compare(keyOf(other.data));
        return order != 0 ? order < 0 : additionOf(data).isBefore(additionOf(other.data));
    }
};

}  // namespace

Builder::Builder() {
    roots_.push_back(std::make_unique<Node>());
}

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
    const auto isPart = [](char byte) { return byte == '/' || byte == '?' || byte == '&'; };
    // Each part can be an ancestor, and their number is stored in a byte.
    if (std::count_if(entry.path.begin(), entry.path.end(), isPart) > 255)
        return "its path has more parts than the catalogue holds";
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
    char data[additionSize + maxKey];
    const std::size_t keySize = 1 + rest.size();
    Addition head{};
    head.position = position_;
    head.sequence = static_cast<std::uint32_t>(count_++);
    head.categoryAndFlags = category << 8U | flags;
    head.source = source;
    head.keySize = static_cast<std::uint16_t>(keySize);
    std::memcpy(data, &head, additionSize);
    data[additionSize] = record;
    std::memcpy(data + additionSize + 1, rest.data(), rest.size());
    keyBytes_ += keySize;
    if (record == hostRecord) ++hostCount_;

    const std::string_view key(data + additionSize, keySize);
    Node* node = roots_.front().get();
    std::size_t depth = 0;
    for (; node->children; ++depth)
        node = &node->child(key, depth);
    node->additions.append(data, additionSize + keySize);
    if (node->additions.size() > fewAdditions && depth < std::min(deepest, keySize)) node->divide(depth);
}

void Builder::take(Builder* other) {
    std::move(other->roots_.begin(), other->roots_.end(), std::back_inserter(roots_));
    count_ += other->count_;
    hostCount_ += other->hostCount_;
    keyBytes_ += other->keyBytes_;
    other->roots_.clear();
    other->roots_.push_back(std::make_unique<Node>());
    other->count_ = 0;
    other->hostCount_ = 0;
    other->keyBytes_ = 0;
}

void Builder::sort() {
    rewind();
    usable_ = sorted_ = 0;
    order_.reset(new const char*[count_]);
    sortingFailure_ = nullptr;
    const auto sortAll = [this] {
        std::size_t done = 0;
        try {
            std::vector<Node*> roots;
            for (const auto& root : roots_)
                roots.push_back(root.get());
            sortNodes(roots, 0, &done);
            tellSorted(done);
        } catch (...) {
            const std::lock_guard<std::mutex> guard(sortedMutex_);
            sortingFailure_ = std::current_exception();
            sortedMore_.notify_one();
        }
    };
    try {
        sorter_ = std::thread(sortAll);
    } catch (const std::system_error&) {
        sortAll();
    }
}

// Puts the additions of nodes whose keys have the same first `depth` bytes in order behind the `done` first
// ones.
void Builder::sortNodes(const std::vector<Node*>& nodes, std::size_t depth, std::size_t* done) {
    const auto isDivided = [](const Node* node) { return node->children != nullptr; };
    if (std::none_of(nodes.begin(), nodes.end(), isDivided)) return sortAdditions(nodes, depth, done);
    for (Node* const node : nodes) {
        if (!isDivided(node)) node->divide(depth);
    }
    std::vector<Node*> children;
    for (std::size_t i = 0; i < Node::childCount; ++i) {
        children.clear();
        for (const Node* const node : nodes) {
            if (!node->children[i].isEmpty()) children.push_back(&node->children[i]);
        }
        if (!children.empty()) sortNodes(children, depth + 1, done);
    }
}

void Builder::sortAdditions(const std::vector<Node*>& nodes, std::size_t depth, std::size_t* done) {
    constexpr std::size_t step = 16384;  // additions that are worth a message to the other thread
    std::vector<Sortable> sortables;
    for (const Node* const node : nodes)
        node->forEach([&](const char* data) { sortables.emplace_back(data, depth); });
    std::sort(sortables.begin(), sortables.end());
    std::vector<std::uint32_t> hosts;  // their hashes
    for (const Sortable& sortable : sortables) {
        order_[(*done)++] = sortable.data;
        const std::string_view key = keyOf(sortable.data);
        if (filter_ && key[0] == hostRecord) hosts.push_back(HostHash::of(key.substr(1)));
    }
    if (filter_) filter_->add(hosts);
    if (*done - sorted_ >= step) tellSorted(*done);
}

void Builder::tellSorted(std::size_t count) {
    const std::lock_guard<std::mutex> guard(sortedMutex_);
    sorted_ = count;
    sortedMore_.notify_one();
}

bool Builder::next(Item* item, Result* result) {
    if (next_ == count_) {
        // The caller may want to be alone now, to block signals for instance.
        joinSorter();
        return false;
    }
    if (next_ == usable_) {
        std::unique_lock<std::mutex> lock(sortedMutex_);
        sortedMore_.wait(lock, [this] { return sorted_ > usable_ || sortingFailure_ != nullptr; });
        if (sortingFailure_ != nullptr) std::rethrow_exception(sortingFailure_);
        usable_ = sorted_;
    }
    item->key = keyOf(order_[next_]);
    item->flags = 0;
    item->pairs.clear();
    // All additions with one key are sorted together.
    for (; next_ < usable_ && keyOf(order_[next_]) == item->key; ++next_) {
        if (usable_ - next_ > ahead) __builtin_prefetch(order_[next_ + ahead]);
        const Addition head = additionOf(order_[next_]);
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
    const std::uint64_t bytes = keyBytes_ + 32U * count_;
    const std::uint64_t slack = sizeof(void*) == 4 ? bytes / 4 + (16U << 20U) : 3 * bytes + (256U << 20U);
    *result = Result();
    try {
        NewFile file(path, static_cast<std::size_t>(bytes + slack));
        Ancestors ancestors;
        Item item;
        std::vector<std::uint64_t> bySource(65536);
        filter_.emplace(hostCount_);
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
