#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "Writer.h"

namespace catalog {

bool Entry::operator==(const Entry& other) const {
    return instead == other.instead && pairs == other.pairs;
}

std::vector<std::uint16_t> categoriesOf(const std::vector<Pair>& pairs) {
    std::vector<std::uint16_t> result;
    for (const Pair& pair : pairs) {
        if (std::find(result.begin(), result.end(), pair.category) == result.end())
            result.push_back(pair.category);
    }
    return result;
}

std::size_t limitPairs(std::vector<Pair>* pairs) {
    const std::size_t before = pairs->size();
    if (before <= maxEntryCategories) return 0;
    for (std::size_t i = before; i-- > 1 && pairs->size() > maxEntryCategories;) {
        const auto place = pairs->begin() + static_cast<std::ptrdiff_t>(i);
        const auto isSame = [&](const Pair& pair) { return pair.category == place->category; };
        if (std::any_of(pairs->begin(), place, isSame)) pairs->erase(place);
    }
    pairs->resize(std::min(pairs->size(), maxEntryCategories));
    return before - pairs->size();
}

std::string numberedKey(Record record, std::uint16_t number) {
    return {record, static_cast<char>(number >> 8U), static_cast<char>(number)};
}

std::string sourceValue(const Source& source) {
    const std::uint64_t numbers[] = {source.lines, source.entries};
    return std::string(reinterpret_cast<const char*>(numbers), sizeof numbers) + source.name;
}

bool parseSource(std::string_view value, Source* source) {
    std::uint64_t numbers[2];
    if (value.size() < sizeof numbers) return false;
    std::memcpy(numbers, value.data(), sizeof numbers);
    source->lines = numbers[0];
    source->entries = numbers[1];
    source->name = value.substr(sizeof numbers);
    return true;
}

int lockCatalog(const std::string& path, Update::Mode mode, std::string* failure) {
    const bool writing = mode == Update::writing;
    const int fd = ::open(path.c_str(), (writing ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *failure = std::strerror(errno);
        return -1;
    }
    if (flock(fd, (writing ? LOCK_EX : LOCK_SH) | LOCK_NB) == 0) return fd;
    *failure = errno == EWOULDBLOCK
                   ? "another program is changing or examining it; try again when it has ended"
                   : std::strerror(errno);
    close(fd);
    return -1;
}

struct Update::Node {
    unsigned char flags = 0;
    std::vector<unsigned> ancestors;
    std::vector<Pair> pairs;
};

std::unique_ptr<Update> Update::open(const std::string& path, std::string* failure, Mode mode) {
    std::unique_ptr<Update> update(new Update);
    update->path_ = path;
    update->lock_ = lockCatalog(path, mode, failure);
    if (update->lock_ < 0) {
        *failure = "catalogue " + path + ": " + *failure;
        return nullptr;
    }
    // Checks the file before LMDB, which trusts it, opens it.
    const std::shared_ptr<Catalog> catalog = Catalog::open(path, failure);
    if (!catalog) return nullptr;
    try {
        struct stat state {};
        update->check(fstat(update->lock_, &state) == 0 ? 0 : errno);
        if (state.st_ino != catalog->inode() || state.st_dev != catalog->device())
            throw Failure{"catalogue " + path + ": it was replaced just now; try again"};
        const auto size = static_cast<std::uint64_t>(state.st_size);
        const std::uint64_t slack =
            sizeof(void*) == 4 ? std::max<std::uint64_t>(size / 2, 512U << 20U) : 2 * size + (4ULL << 30U);
        update->check(mdb_env_create(&update->environment_));
        // Treat it like a fault in the mapping, which the program's handlers report.
        mdb_env_set_assert(update->environment_, [](MDB_env*, const char*) { raise(SIGSEGV); });
        update->check(mdb_env_set_mapsize(update->environment_, static_cast<std::size_t>(size + slack)));
        const unsigned readOnly = mode == reading ? MDB_RDONLY : 0U;
        update->check(
            mdb_env_open(update->environment_, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK | readOnly, 0644));
        update->check(mdb_txn_begin(update->environment_, nullptr, readOnly, &update->transaction_));
        MDB_dbi records = 0;
        update->check(mdb_dbi_open(update->transaction_, nullptr, 0, &records));
    } catch (const Failure& caught) {
        *failure = caught.text;
        return nullptr;
    }
    Reader reader(catalog);
    if (reader.header(&update->header_) != Reader::done) {
        *failure = "catalogue " + path + ": the file is damaged; recreate it with katcatalog import";
        return nullptr;
    }
    return update;
}

Update::~Update() {
    if (transaction_ != nullptr) mdb_txn_abort(transaction_);
    if (environment_ != nullptr) mdb_env_close(environment_);
    if (lock_ >= 0) close(lock_);
}

void Update::check(int error) const {
    if (error != 0) throw Failure{"catalogue " + path_ + ": " + mdb_strerror(error)};
}

bool Update::read(std::string_view key, std::string* value) {
    MDB_val name{key.size(), const_cast<char*>(key.data())};
    MDB_val data;
    const int error = mdb_get(transaction_, 1, &name, &data);
    if (error == MDB_NOTFOUND) return false;
    check(error);
    value->assign(static_cast<const char*>(data.mv_data), data.mv_size);
    return true;
}

void Update::write(std::string_view key, std::string_view value) {
    MDB_val name{key.size(), const_cast<char*>(key.data())};
    MDB_val data{value.size(), const_cast<char*>(value.data())};
    check(mdb_put(transaction_, 1, &name, &data, 0));
    ++written_;
}

void Update::remove(std::string_view key) {
    MDB_val name{key.size(), const_cast<char*>(key.data())};
    const int error = mdb_del(transaction_, 1, &name, nullptr);
    if (error != MDB_NOTFOUND) check(error);
    ++written_;
}

bool Update::readNode(std::string_view key, Node* node) {
    std::string bytes;
    if (!read(key, &bytes)) return false;
    Value value;
    if (!value.parse(bytes.data(), bytes.size(), key[0])) check(MDB_CORRUPTED);
    node->flags = value.flags;
    node->ancestors.clear();
    for (unsigned i = 0; i < value.ancestors; ++i)
        node->ancestors.push_back(value.ancestor(i));
    node->pairs.clear();
    for (std::size_t i = 0; i < value.pairCount; ++i)
        node->pairs.push_back(value.pair(i));
    return true;
}

void Update::writeNode(std::string_view key, const Node& node) {
    write(key, makeValue(node.flags, node.ancestors, node.pairs, key[0]));
}

namespace {

class Cursor {
public:
    explicit Cursor(MDB_txn* transaction) { mdb_cursor_open(transaction, 1, &cursor_); }
    ~Cursor() {
        if (cursor_ != nullptr) mdb_cursor_close(cursor_);
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    // Moves to the first record whose key is not less; false if there is none.
    bool seek(std::string_view key) {
        key_ = {key.size(), const_cast<char*>(key.data())};
        return mdb_cursor_get(cursor_, &key_, &data_, MDB_SET_RANGE) == 0;
    }
    bool move(MDB_cursor_op how) { return mdb_cursor_get(cursor_, &key_, &data_, how) == 0; }
    std::string_view key() const { return {static_cast<const char*>(key_.mv_data), key_.mv_size}; }
    const MDB_val& data() const { return data_; }

private:
    MDB_cursor* cursor_ = nullptr;
    MDB_val key_{};
    MDB_val data_{};
};

}  // namespace

// Adds the key to the ancestor lists of all records below it, or removes it from them.
void Update::changeBelow(std::string_view key, bool add) {
    std::vector<std::string> below;
    {
        Cursor cursor(transaction_);
        for (bool more = cursor.seek(key); more; more = cursor.move(MDB_NEXT)) {
            if (cursor.key() == key) continue;
            if (!isAncestor(key, cursor.key())) break;
            below.emplace_back(cursor.key());
        }
    }
    const unsigned mark = ancestorMark(key);
    for (const std::string& name : below) {
        Node node;
        if (!readNode(name, &node)) continue;
        const auto place = std::lower_bound(node.ancestors.begin(), node.ancestors.end(), mark);
        if (add) {
            node.ancestors.insert(place, mark);
        } else if (place != node.ancestors.end() && *place == mark) {
            node.ancestors.erase(place);
        }
        writeNode(name, node);
    }
}

// Changes a record. Creates it if it does not exist, and deletes it if no flag that justifies it is left.
void Update::setNode(std::string_view key, unsigned char set, unsigned char clear, const Entry* entry) {
    Node node;
    const bool existed = readNode(key, &node);
    const Node before = node;
    node.flags = static_cast<unsigned char>((node.flags | set) & ~clear);
    if (entry != nullptr) node.pairs = entry->pairs;
    if ((node.flags & (isEntry | hasPaths | hasPorts)) == 0) {
        if (!existed) return;
        remove(key);
        changeBelow(key, false);
        return;
    }
    if (existed && node.flags == before.flags && entry == nullptr) return;
    if (!existed) {
        Cursor cursor(transaction_);
        if (cursor.seek(key) ? cursor.move(MDB_PREV) : cursor.move(MDB_LAST)) {
            const std::string above(cursor.key());
            Node neighbour;
            if (above[0] == key[0] && readNode(above, &neighbour)) {
                std::string ancestor;
                for (const unsigned mark : neighbour.ancestors) {
                    ancestor = above;
                    if (key[0] == networkRecord) {
                        maskAddress(ancestor.data() + 2, ancestor.size() - 3, mark);
                        ancestor.back() = static_cast<char>(mark);
                    } else {
                        ancestor.resize(mark);
                    }
                    if (isAncestor(ancestor, key)) node.ancestors.push_back(mark);
                }
                if (isAncestor(above, key)) node.ancestors.push_back(ancestorMark(above));
            }
        }
    }
    writeNode(key, node);
    if (!existed) changeBelow(key, true);
}

bool Update::get(const std::string& key, Entry* entry) {
    Node node;
    if (!readNode(key, &node) || (node.flags & isEntry) == 0) return false;
    entry->instead = (node.flags & isInstead) != 0;
    entry->pairs = node.pairs;
    return true;
}

namespace {

// A path key continues after the host at index host.size(): an address has a prefix length at the end of its
// host key, and in the path key a zero byte before it instead.
unsigned char flagOf(std::string_view key, std::string_view host) {
    return key[host.size()] == keyPort ? hasPorts : hasPaths;
}

}  // namespace

void Update::put(const std::string& key, const std::string& host, const Entry& entry) {
    Entry before;
    if (!get(key, &before)) {
        ++header_.entries;
    } else if (before == entry) {
        return;
    }
    if (!host.empty()) setNode(host, flagOf(key, host), 0, nullptr);
    setNode(key, static_cast<unsigned char>(isEntry | (entry.instead ? isInstead : 0)),
            entry.instead ? 0 : isInstead, &entry);
}

void Update::put(const Url& url, const Entry& entry) {
    EntryKeys keys;
    if (const char* const reason = entryKeys(url, &keys)) throw Failure{reason};
    put(keys.own, keys.host, entry);
}

bool Update::hasBelow(std::string_view host, bool ports) {
    std::string prefix(1, pathRecord);
    if (host[0] == networkRecord) {
        // Only single addresses have paths.
        if (static_cast<unsigned char>(host.back()) != 8 * (host.size() - 3)) return false;
        prefix.push_back('\0');
        prefix.append(host.substr(1, host.size() - 2));
    } else {
        prefix.append(host.substr(1));
    }
    for (const char separator : {keySlash, keyQuestion, keyPort}) {
        if ((separator == keyPort) != ports) continue;
        const std::string wanted = prefix + separator;
        Cursor cursor(transaction_);
        if (cursor.seek(wanted) && cursor.key().substr(0, wanted.size()) == wanted) return true;
    }
    return false;
}

bool Update::erase(const std::string& key, const std::string& host) {
    Entry before;
    if (!get(key, &before)) return false;
    --header_.entries;
    const Entry nothing;
    setNode(key, 0, isEntry | isInstead, &nothing);
    if (!host.empty()) {
        const unsigned char flag = flagOf(key, host);
        if (!hasBelow(host, flag == hasPorts)) setNode(host, 0, flag, nullptr);
    }
    return true;
}

void Update::forEachRecord(void (*see)(void*, std::string_view, const Value&), void* context) {
    Cursor cursor(transaction_);
    for (bool more = cursor.seek(std::string(1, hostRecord)); more; more = cursor.move(MDB_NEXT)) {
        Value value;
        if (!value.parse(cursor.data().mv_data, cursor.data().mv_size, cursor.key()[0])) check(MDB_CORRUPTED);
        if ((value.flags & isEntry) != 0) see(context, cursor.key(), value);
    }
}

std::vector<std::string> Update::check() {
    constexpr std::size_t limit = 100;
    std::vector<std::string> problems;
    std::vector<std::string> above;  // ancestors of the current record, and itself
    std::uint64_t entries = 0;
    std::string previous;
    Cursor cursor(transaction_);
    for (bool more = cursor.move(MDB_FIRST); more && problems.size() < limit; more = cursor.move(MDB_NEXT)) {
        const std::string key(cursor.key());
        const auto say = [&](const std::string& what) {
            problems.push_back("record " + keyText(key) + ": " + what);
        };
        if (!previous.empty() && key <= previous) say("not in the order of the keys");
        previous = key;
        if (key[0] != hostRecord && key[0] != networkRecord && key[0] != pathRecord) continue;
        Value value;
        if (!value.parse(cursor.data().mv_data, cursor.data().mv_size, key[0])) {
            say("its value is damaged");
            continue;
        }
        if (keyText(key).empty()) say("its key is damaged");
        while (!above.empty() && !isAncestor(above.back(), key))
            above.pop_back();
        bool same = value.ancestors == above.size();
        for (unsigned i = 0; same && i < value.ancestors; ++i)
            same = value.ancestor(i) == ancestorMark(above[i]);
        if (!same) say("it does not know the records above it");
        above.push_back(key);
        if ((value.flags & isEntry) != 0) ++entries;
        if ((value.flags & (isEntry | hasPaths | hasPorts)) == 0) say("it says nothing");
        for (const bool ports : {false, true}) {
            const Flags flag = ports ? hasPorts : hasPaths;
            if (key[0] != pathRecord && ((value.flags & flag) != 0) != hasBelow(key, ports))
                say("it is wrong about the paths below it");
        }
        if (key[0] == pathRecord) {
            Node host;
            if (!readNode(hostKeyOf(key), &host)) say("its host has no record");
        }
    }
    if (problems.empty() && entries != header_.entries) {
        problems.push_back("there are " + std::to_string(entries) + " entries, and the header says " +
                           std::to_string(header_.entries));
    }
    return problems;
}

namespace {

// Calls see(number, value) for each record of a numbered type.
template <typename See>
void forEachNumbered(MDB_txn* transaction, Record record, See see) {
    Cursor cursor(transaction);
    for (bool more = cursor.seek(std::string(1, record)); more; more = cursor.move(MDB_NEXT)) {
        const std::string_view key = cursor.key();
        if (key[0] != record || key.size() != 3) break;
        const auto number = static_cast<std::uint16_t>(static_cast<unsigned char>(key[1]) * 256U +
                                                       static_cast<unsigned char>(key[2]));
        see(number, std::string_view(static_cast<const char*>(cursor.data().mv_data), cursor.data().mv_size));
    }
}

}  // namespace

Sources Update::sources() {
    Sources result;
    forEachNumbered(transaction_, sourceRecord, [&](std::uint16_t number, std::string_view value) {
        Source source;
        if (parseSource(value, &source)) result[number] = source;
    });
    return result;
}

CategoryNames Update::categoryNames() {
    CategoryNames result;
    forEachNumbered(transaction_, categoryRecord,
                    [&](std::uint16_t number, std::string_view value) { result[number] = value; });
    return result;
}

void Update::setSource(std::uint16_t number, const Source& source) {
    write(numberedKey(sourceRecord, number), sourceValue(source));
}

void Update::eraseSource(std::uint16_t number) {
    remove(numberedKey(sourceRecord, number));
}

void Update::setCategoryName(std::uint16_t number, const std::string& text) {
    write(numberedKey(categoryRecord, number), text);
}

void Update::eraseCategoryName(std::uint16_t number) {
    remove(numberedKey(categoryRecord, number));
}

std::string memoryValue(std::uint64_t changes, const std::string& memory) {
    return std::string(reinterpret_cast<const char*>(&changes), sizeof changes) + memory;
}

// A writer that stores no memory makes the one that is there void.
std::string Update::memory() {
    std::string value;
    const std::string expected = memoryValue(header_.changes, {});
    if (!read(std::string(1, memoryRecord), &value) || value.compare(0, expected.size(), expected) != 0)
        return {};
    return value.substr(expected.size());
}

void Update::setMemory(const std::string& memory) {
    write(std::string(1, memoryRecord), memoryValue(header_.changes + 1, memory));
}

void Update::commit() {
    header_.changed = static_cast<std::uint64_t>(std::time(nullptr));
    ++header_.changes;
    write(std::string(1, headerRecord), headerValue(header_));
    MDB_txn* const transaction = transaction_;
    transaction_ = nullptr;
    check(mdb_txn_commit(transaction));
}

}  // namespace catalog
