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

namespace {

constexpr std::size_t maxProblems = 100;  // that check() reports

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
    // Moves to the first recent record.
    bool seekRecent() { return seek(firstRecent) && isRecent(key()); }
    bool move(MDB_cursor_op how) { return mdb_cursor_get(cursor_, &key_, &data_, how) == 0; }
    // Stores a record, faster if it belongs near the one moved to. LMDB's error.
    int put(std::string_view key, std::string_view value) {
        key_ = {key.size(), const_cast<char*>(key.data())};
        data_ = {value.size(), const_cast<char*>(value.data())};
        return mdb_cursor_put(cursor_, &key_, &data_, 0);
    }
    std::string_view key() const { return {static_cast<const char*>(key_.mv_data), key_.mv_size}; }
    const MDB_val& data() const { return data_; }

private:
    MDB_cursor* cursor_ = nullptr;
    MDB_val key_{};
    MDB_val data_{};
};

}  // namespace

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
    update->catalog_ = Catalog::open(path, failure);
    if (!update->catalog_) return nullptr;
    try {
        struct stat state {};
        update->check(fstat(update->lock_, &state) == 0 ? 0 : errno);
        if (state.st_ino != update->catalog_->inode() || state.st_dev != update->catalog_->device())
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
        update->hasRecent_ = Cursor(update->transaction_).seekRecent();
    } catch (const Failure& caught) {
        *failure = caught.text;
        return nullptr;
    }
    Reader reader(update->catalog_);
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
    if (error == 0) return;
    const bool isDamaged = error == MDB_CORRUPTED || error == MDB_PAGE_NOTFOUND || error == MDB_BAD_TXN;
    throw Failure{
        "catalogue " + path_ + ": " +
        (isDamaged ? "the file is damaged; recreate it with katcatalog import" : mdb_strerror(error))};
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

bool Update::readStored(std::string_view key, Node* node) {
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

void Update::writeStored(std::string_view key, const Node& node) {
    write(key, makeValue(node.flags, node.ancestors, node.pairs, key[0]));
}

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
        if (!readStored(name, &node)) continue;
        const auto place = std::lower_bound(node.ancestors.begin(), node.ancestors.end(), mark);
        if (add) {
            node.ancestors.insert(place, mark);
        } else if (place != node.ancestors.end() && *place == mark) {
            node.ancestors.erase(place);
        }
        writeStored(name, node);
    }
}

// Adds a record with the flags and pairs of `node`, and the ancestors that it has among the stored records.
void Update::insert(std::string_view key, Node node) {
    bool hasBelow = false;
    node.ancestors.clear();
    {
        Cursor cursor(transaction_);
        const bool isLast = !cursor.seek(key);
        hasBelow = !isLast && isAncestor(key, cursor.key());
        if (cursor.move(isLast ? MDB_LAST : MDB_PREV) && cursor.key()[0] == key[0]) {
            Value neighbour;
            if (!neighbour.parse(cursor.data().mv_data, cursor.data().mv_size, key[0])) check(MDB_CORRUPTED);
            std::string ancestor;
            for (unsigned i = 0; i < neighbour.ancestors; ++i) {
                const unsigned mark = neighbour.ancestor(i);
                ancestor = cursor.key();
                if (recordOf(key) == networkRecord) {
                    maskAddress(ancestor.data() + 2, ancestor.size() - 3, mark);
                    ancestor.back() = static_cast<char>(mark);
                } else {
                    ancestor.resize(mark);
                }
                if (isAncestor(ancestor, key)) node.ancestors.push_back(mark);
            }
            if (isAncestor(cursor.key(), key)) node.ancestors.push_back(ancestorMark(cursor.key()));
        }
        check(cursor.put(key, makeValue(node.flags, node.ancestors, node.pairs, key[0])));
        ++written_;
    }
    if (hasBelow) changeBelow(key, true);
}

Update::Known::Layer Update::readNode(std::string_view key, Node* node) {
    if (hasRecent_ && readStored(withCase(key, true), node)) return Known::recent;
    return readStored(key, node) ? Known::lasting : Known::nothing;
}

// Like the above, but reads only what the caller does not know and is needed.
Update::Known::Layer Update::readNode(std::string_view key, const Known* known, Node* node) {
    if (known == nullptr || known->layer == Known::recent || isDirect_) return readNode(key, node);
    node->flags = known->flags;
    return known->layer;
}

// Makes `node`, which was read from this layer, the record of the key. Without a flag that justifies it, the
// record is gone.
void Update::writeNode(std::string_view key, Known::Layer layer, Node node) {
    if ((node.flags & (isEntry | hasPaths | hasPorts)) == 0) {
        node.flags = 0;
        node.pairs.clear();
    }
    if (isDirect_) {
        writeLasting(key, layer == Known::lasting, std::move(node));
        return;
    }
    const std::string recentKey = withCase(key, true);
    if (layer == Known::recent) {
        writeStored(recentKey, node);
    } else {
        insert(recentKey, std::move(node));
    }
    hasRecent_ = true;
}

void Update::writeLasting(std::string_view key, bool exists, Node node) {
    if (node.flags == 0) {
        if (!exists) return;
        remove(key);
        changeBelow(key, false);
    } else if (exists) {
        writeStored(key, node);
    } else {
        insert(key, std::move(node));
    }
}

// Changes the flags of a host that has, or had, paths.
void Update::setHostFlags(std::string_view host, unsigned set, unsigned clear) {
    Node node;
    const Known::Layer layer = readNode(host, &node);
    const auto flags = static_cast<unsigned char>((node.flags | set) & ~clear);
    if (layer == Known::recent && flags == node.flags) return;
    node.flags = flags;
    writeNode(host, layer, node);
}

bool Update::get(const std::string& key, Entry* entry) {
    Node node;
    if (readNode(key, &node) == Known::nothing || (node.flags & isEntry) == 0) return false;
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

void Update::put(const std::string& key, const std::string& host, const Entry& entry, const Known* known) {
    Node node;
    const Known::Layer layer = readNode(key, known, &node);
    const unsigned flags = isEntry | (entry.instead ? isInstead : 0U);
    if (known == nullptr && (node.flags & (isEntry | isInstead)) == flags && node.pairs == entry.pairs)
        return;
    if ((node.flags & isEntry) == 0) ++header_.entries;
    if (!host.empty()) setHostFlags(host, flagOf(key, host), 0);
    node.flags = static_cast<unsigned char>((node.flags & ~isInstead) | flags);
    node.pairs = entry.pairs;
    writeNode(key, layer, std::move(node));
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
    Node node;
    for (const char separator : {keySlash, keyQuestion, keyPort}) {
        if ((separator == keyPort) != ports) continue;
        for (const bool recent : {true, false}) {
            if (recent && !hasRecent_) continue;
            const std::string wanted = withCase(prefix, recent) + separator;
            Cursor cursor(transaction_);
            for (bool more = cursor.seek(wanted); more && cursor.key().substr(0, wanted.size()) == wanted;
                 more = cursor.move(MDB_NEXT)) {
                if (readNode(withCase(cursor.key(), false), &node) != Known::nothing && node.flags != 0)
                    return true;
            }
        }
    }
    return false;
}

bool Update::erase(const std::string& key, const std::string& host, const Known* known) {
    Node node;
    const Known::Layer layer = readNode(key, known, &node);
    if ((node.flags & isEntry) == 0) return false;
    --header_.entries;
    node.flags = static_cast<unsigned char>(node.flags & ~(isEntry | isInstead));
    node.pairs.clear();
    writeNode(key, layer, std::move(node));
    if (!host.empty()) {
        setHostFlags(host, 0, 0);
        lostPaths_.insert(host);
    }
    return true;
}

Update::Records::Records(const Update& update)
    : update_(update), lasting_(*update.catalog_), recent_(*update.catalog_) {
    moreLasting_ = lasting_.seek(firstLasting);
    moreRecent_ = update.hasRecent_ && recent_.seek(firstRecent) && isRecent(recent_.key());
    if (moreRecent_) recentKey_ = withCase(recent_.key(), false);
}

// Checks what must be right of each record whatever the others say: order, form, ancestors, filters.
std::vector<std::string> Update::checkStored() {
    std::vector<std::string> problems;
    std::vector<std::string> above;  // ancestors of the current record, and itself
    std::string previous;
    std::string words[2];
    read(std::string(1, hostFilter), &words[0]);
    if (hasRecent_ && !read(std::string(1, recentFilter), &words[1]))
        problems.emplace_back("there are recent records without a filter");
    Cursor cursor(transaction_);
    for (bool more = cursor.move(MDB_FIRST); more && problems.size() < maxProblems;
         more = cursor.move(MDB_NEXT)) {
        const std::string key(cursor.key());
        const char record = recordOf(key);
        const bool recent = isRecent(key);
        const auto say = [&](const std::string& what) {
            problems.push_back("record " + keyText(withCase(key, false)) + ": " + what);
        };
        if (!previous.empty() && key <= previous) say("not in the order of the keys");
        previous = key;
        if (record != hostRecord && record != networkRecord && record != pathRecord) continue;
        Value value;
        if (!value.parse(cursor.data().mv_data, cursor.data().mv_size, key[0])) {
            say("its value is damaged");
            continue;
        }
        if (keyText(withCase(key, false)).empty()) say("its key is damaged");
        while (!above.empty() && !isAncestor(above.back(), key))
            above.pop_back();
        bool same = value.ancestors == above.size();
        for (unsigned i = 0; same && i < value.ancestors; ++i)
            same = value.ancestor(i) == ancestorMark(above[i]);
        if (!same) say("it does not know the records above it");
        above.push_back(key);
        if (!recent && (value.flags & (isEntry | hasPaths | hasPorts)) == 0) say("it says nothing");
        const std::string& hosts = words[recent ? 1 : 0];
        if (record == hostRecord && !hosts.empty() &&
            HostFilter(hosts.data(), hosts.size()).has(HostHash::of(key.substr(1))) != HostFilter::perhaps)
            say("it is not in the filter of the hosts");
        Node host;
        if (recent && record == pathRecord &&
            !readStored(withCase(hostKeyOf(withCase(key, false)), true), &host))
            say("its host has no recent record");
    }
    return problems;
}

std::vector<std::string> Update::check() {
    std::vector<std::string> problems = checkStored();
    std::uint64_t entries = 0;
    for (Records records(*this); records.next();) {
        const std::string_view key = records.key();
        const Value& value = records.value();
        if (value.flags == 0) continue;
        const auto say = [&](const std::string& what) {
            if (problems.size() < maxProblems) problems.push_back("record " + keyText(key) + ": " + what);
        };
        if ((value.flags & isEntry) != 0) ++entries;
        for (const bool ports : {false, true}) {
            const Flags flag = ports ? hasPorts : hasPaths;
            if (key[0] != pathRecord && ((value.flags & flag) != 0) != hasBelow(key, ports))
                say("it is wrong about the paths below it");
        }
        Node host;
        if (key[0] == pathRecord && (readNode(hostKeyOf(key), &host) == Known::nothing || host.flags == 0))
            say("its host has no record");
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

void Update::expectChanges(std::uint64_t count) {
    if (count <= mostRecent()) return;
    if (hasRecent_) mergeRecent();
    isDirect_ = true;
}

// The hosts of the recent records go into their filter.
void Update::finishRecent() {
    std::uint64_t count = 0;
    std::vector<std::uint32_t> hosts;
    {
        Cursor cursor(transaction_);
        for (bool more = cursor.seekRecent(); more && count <= mostRecent();
             more = cursor.move(MDB_NEXT) && isRecent(cursor.key())) {
            ++count;
            if (recordOf(cursor.key()) == hostRecord) hosts.push_back(HostHash::of(cursor.key().substr(1)));
        }
    }
    if (count > mostRecent()) {
        mergeRecent();
        isDirect_ = true;
        return;
    }
    HostFilterWords filter(hosts.size());
    filter.add(hosts);
    write(std::string(1, recentFilter), filter.bytes());
}

void Update::mergeRecent() {
    constexpr std::size_t batch = 10000;  // do not hold all in memory
    std::vector<std::pair<std::string, Node>> changes;
    do {
        changes.clear();
        {
            Cursor cursor(transaction_);
            for (bool more = cursor.seekRecent(); more && changes.size() < batch;
                 more = cursor.move(MDB_NEXT) && isRecent(cursor.key()))
                changes.emplace_back(cursor.key(), Node());
        }
        for (auto& [key, node] : changes) {
            readStored(key, &node);
            remove(key);
            const std::string lastingKey = withCase(key, false);
            Node before;
            const bool existed = readStored(lastingKey, &before);
            node.ancestors = before.ancestors;
            writeLasting(lastingKey, existed, std::move(node));
        }
    } while (!changes.empty());
    remove(std::string(1, recentFilter));
    hasRecent_ = false;
}

void Update::writeHostFilter() {
    MDB_stat stat;
    check(mdb_stat(transaction_, 1, &stat));
    HostFilterWords filter(stat.ms_entries);
    std::vector<std::uint32_t> hosts;
    Cursor cursor(transaction_);
    for (bool more = cursor.seek(std::string(1, hostRecord)); more && cursor.key()[0] == hostRecord;
         more = cursor.move(MDB_NEXT)) {
        hosts.push_back(HostHash::of(cursor.key().substr(1)));
        if (hosts.size() < 4096) continue;
        filter.add(hosts);
        hosts.clear();
    }
    filter.add(hosts);
    write(std::string(1, hostFilter), filter.bytes());
}

void Update::commit() {
    for (const std::string& host : lostPaths_)
        setHostFlags(host, 0,
                     (hasBelow(host, false) ? 0U : hasPaths) | (hasBelow(host, true) ? 0U : hasPorts));
    if (hasRecent_) finishRecent();
    if (isDirect_) writeHostFilter();
    header_.changed = static_cast<std::uint64_t>(std::time(nullptr));
    ++header_.changes;
    write(std::string(1, headerRecord), headerValue(header_));
    MDB_txn* const transaction = transaction_;
    transaction_ = nullptr;
    check(mdb_txn_commit(transaction));
}

}  // namespace catalog
