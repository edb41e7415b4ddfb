#include "Catalog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Guard.h"
#include "Pages.h"

namespace catalog {

namespace {

// LMDB trusts the meta pages, even as divisors, so they are checked before it opens the file.
constexpr std::uint32_t lmdbMagic = 0xBEEFC0DE;

enum class MetaState { good, foreign, cut };

MetaState examineMeta(int fd) {
    MetaPage meta{};
    std::uint32_t pageSize = 0;
    for (unsigned i = 0; i < 2; ++i) {
        const ssize_t size = pread(fd, &meta, sizeof meta, static_cast<off_t>(i) * pageSize);
        if (size != static_cast<ssize_t>(sizeof meta)) return i == 0 ? MetaState::foreign : MetaState::cut;
        const MetaPage::Database& freeList = meta.freePages;
        const bool sane = meta.head.number == i && (meta.head.flags & PageHead::meta) != 0 &&
                          meta.magic == lmdbMagic && meta.version == 1 && freeList.pageSize >= 512 &&
                          freeList.pageSize <= 65536 && (freeList.pageSize & (freeList.pageSize - 1)) == 0 &&
                          meta.records.flags == 0;
        if (!sane || (i == 1 && freeList.pageSize != pageSize)) return MetaState::foreign;
        pageSize = freeList.pageSize;
    }
    return MetaState::good;
}

std::string sentence(const std::string& path, const std::string& what) {
    return "catalogue " + path + ": " + what;
}
constexpr const char* recreate = "; recreate it with katcatalog import";

// The size to map: leaves space for the file to grow, less of it where addresses are scarce.
std::uint64_t mappingFor(std::uint64_t fileSize) {
    constexpr std::uint64_t least = sizeof(void*) == 4 ? 4U << 20U : 64U << 20U;
    return (fileSize + std::max(fileSize / (sizeof(void*) == 4 ? 8 : 2), least)) & ~std::uint64_t{0xffff};
}

// Arguments and results of openBody(), which runs in the guarded section.
struct Opening {
    MDB_env* environment;
    const char* path;
    int error;
    MDB_txn* transaction;
    MDB_cursor* freePages;
    std::uintptr_t mapping;
    std::size_t pageSize;
    std::size_t mappedSize;
    bool isCut;
};

// Whether the file lacks a page that is in use. LMDB does not write those that a transaction has both added
// at the end of the file and freed.
bool lacksPages(Opening* opening, std::size_t lastPage) {
    int fd = -1;
    struct stat state {};
    if (mdb_env_get_fd(opening->environment, &fd) != 0 || fstat(fd, &state) != 0) return true;
    const auto pages =
        static_cast<std::size_t>(static_cast<std::uint64_t>(state.st_size) / opening->pageSize);
    if (lastPage < pages) return false;
    std::size_t missing = lastPage - pages + 1;
    constexpr MDB_dbi freePages = 0;  // each record has a count of numbers, and the numbers
    if (mdb_cursor_open(opening->transaction, freePages, &opening->freePages) != 0) return true;
    MDB_val key;
    MDB_val data;
    while (missing > 0 && mdb_cursor_get(opening->freePages, &key, &data, MDB_NEXT) == 0) {
        for (std::size_t i = sizeof(std::size_t); i + sizeof i <= data.mv_size && missing > 0;
             i += sizeof i) {
            std::size_t number = 0;
            std::memcpy(&number, static_cast<const char*>(data.mv_data) + i, sizeof number);
            if (number >= pages) --missing;
        }
    }
    return missing > 0;
}

void openBody(void* context) {
    auto* const opening = static_cast<Opening*>(context);
    opening->error = mdb_env_open(opening->environment, opening->path,
                                  MDB_RDONLY | MDB_NOSUBDIR | MDB_NOLOCK | MDB_NOTLS, 0);
    if (opening->error != 0) return;
    opening->error = mdb_txn_begin(opening->environment, nullptr, MDB_RDONLY, &opening->transaction);
    if (opening->error != 0) return;
    MDB_dbi records = 0;
    opening->error = mdb_dbi_open(opening->transaction, nullptr, 0, &records);
    if (opening->error != 0) return;
    MDB_envinfo info;
    MDB_stat stat;
    mdb_env_info(opening->environment, &info);
    mdb_env_stat(opening->environment, &stat);
    opening->mappedSize = info.me_mapsize;
    opening->pageSize = stat.ms_psize;
    opening->isCut = true;  // if the section ends here
    opening->isCut = lacksPages(opening, info.me_last_pgno);
    if (opening->isCut) return;
    // LMDB does not say where it has mapped the file; a page knows its number.
    const char name = headerRecord;
    MDB_val key{1, const_cast<char*>(&name)};
    MDB_val header;
    if (mdb_get(opening->transaction, records, &key, &header) != 0) return;
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(header.mv_data);
    const std::uintptr_t page = address - address % opening->pageSize;
    opening->mapping = page - reinterpret_cast<const PageHead*>(page)->number * opening->pageSize;
}

}  // namespace

std::shared_ptr<Catalog> Catalog::open(const std::string& path, std::string* failure) {
    const auto fail = [&](const std::string& what) {
        *failure = sentence(path, what);
        return nullptr;
    };
    // Without O_NONBLOCK a FIFO would block katd.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        const int error = errno;
        return fail(std::string(std::strerror(error)) +
                    (error == ENOENT ? "; make one with katcatalog import" : ""));
    }
    struct stat state {};
    MetaState meta = MetaState::foreign;
    const bool regular = fstat(fd, &state) == 0 && S_ISREG(state.st_mode);
    if (regular) meta = examineMeta(fd);
    close(fd);
    if (!regular) return fail("not a regular file");
    if (meta == MetaState::foreign)
        return fail(std::string("not a catalogue of this machine's word size") + recreate);
    const std::string cut = std::string("the file is cut") + recreate;
    if (meta == MetaState::cut) return fail(cut);

    std::shared_ptr<Catalog> result(new Catalog);
    result->path_ = path;
    result->device_ = state.st_dev;
    result->inode_ = state.st_ino;
    const std::uint64_t mapSize = mappingFor(static_cast<std::uint64_t>(state.st_size));
    if (mdb_env_create(&result->environment_) != 0) return fail("out of memory");
    mdb_env_set_assert(result->environment_, [](MDB_env*, const char*) { endGuarded(); });
    mdb_env_set_mapsize(result->environment_, static_cast<std::size_t>(mapSize));
    Opening opening{result->environment_, path.c_str(), 0, nullptr, nullptr, 0, 1, 0, false};
    const bool ran = runGuarded(openBody, &opening);
    if (opening.freePages != nullptr) mdb_cursor_close(opening.freePages);
    if (opening.transaction != nullptr) mdb_txn_abort(opening.transaction);
    if (opening.isCut) return fail(cut);
    if (!ran) return fail(std::string("the file is damaged") + recreate);
    if (opening.error != 0) return fail(mdb_strerror(opening.error));
    result->mapping_ = opening.mapping;
    result->mappedSize_ = opening.mappedSize;
    result->pageSize_ = opening.pageSize;
    Header header;
    Reader reader(result);
    if (reader.header(&header) != Reader::done)
        return fail(std::string("not a catalogue, of another version, or damaged") + recreate);
    return result;
}

Catalog::~Catalog() {
    if (environment_ != nullptr) mdb_env_close(environment_);
}

// Entries found in one tree, longest first.
struct Reader::Hits {
    static constexpr unsigned limit = 300;  // above the possible number of labels, segments or bits

    struct Hit {
        std::size_t keySize;  // of a network: its prefix length
        Value value;
        bool isRecent;
    };

    // False if there are more than an undamaged file can have.
    bool add(std::size_t size, const Value& value) {
        if (count == limit) return false;
        hits[count++] = Hit{size, value, false};
        return true;
    }

    // Replaces the records that have been changed since, and adds those that are new.
    bool change(const Hits& recent) {
        for (const Hit* hit = recent.hits; hit != recent.hits + recent.count; ++hit) {
            Hit* const place = std::find_if(
                hits, hits + count, [hit](const Hit& other) { return other.keySize <= hit->keySize; });
            if (place == hits + count || place->keySize != hit->keySize) {
                if (count == limit) return false;
                std::copy_backward(place, hits + count, hits + count + 1);
                ++count;
            }
            *place = *hit;
            place->isRecent = true;
        }
        const auto isGone = [](const Hit& hit) { return hit.value.flags == 0; };
        count = static_cast<unsigned>(std::remove_if(hits, hits + count, isGone) - hits);
        return true;
    }

    unsigned count;
    std::size_t base;  // of path records: the offset of the path in the key
    std::size_t keySize;
    char key[1024];  // the key searched for
    Hit hits[limit];
};

struct Reader::Request {
    Reader* reader;
    const Url* url;
    Visit visit;
    Restart restart;
    void* context;
    Header* header;
};

Reader::Reader(std::shared_ptr<Catalog> catalog) : catalog_(std::move(catalog)), hits_(new Hits[4]) {}

Reader::~Reader() {
    endTransaction();
}

void Reader::endTransaction() {
    if (cursor_ != nullptr) mdb_cursor_close(cursor_);
    if (transaction_ != nullptr) mdb_txn_abort(transaction_);
    cursor_ = nullptr;
    transaction_ = nullptr;
    live_ = false;
    filtersRead_ = false;
}

std::uint64_t Reader::lastVersion() const {
    MDB_envinfo info;
    mdb_env_info(catalog_->environment(), &info);
    return info.me_last_txnid;
}

// Renews the transaction if there is a newer version.
bool Reader::begin() {
    MDB_env* const environment = catalog_->environment();
    // Read this before LMDB allocates anything: if the file was truncated, the section ends here.
    const std::uint64_t version = lastVersion();
    int error = 0;
    if (transaction_ == nullptr) {
        error = mdb_txn_begin(environment, nullptr, MDB_RDONLY, &transaction_);
    } else if (!live_ || mdb_txn_id(transaction_) != version) {
        if (live_) mdb_txn_reset(transaction_);
        live_ = false;
        filtersRead_ = false;
        error = mdb_txn_renew(transaction_);
    }
    if (error == 0) {
        live_ = true;
        // A cursor that keeps its position first compares with that page, which is seldom the right one.
        error = cursor_ == nullptr ? mdb_cursor_open(transaction_, 1, &cursor_)
                                   : mdb_cursor_renew(transaction_, cursor_);
    }
    if (error != 0) status_ = error == MDB_MAP_RESIZED ? grown : damaged;
    return error == 0;
}

namespace {

bool isBefore(const MDB_val& a, const MDB_val& b) {
    const int order = std::memcmp(a.mv_data, b.mv_data, std::min(a.mv_size, b.mv_size));
    return order < 0 || (order == 0 && a.mv_size < b.mv_size);
}

}  // namespace

bool Reader::predecessor(MDB_val* key, MDB_val* value) {
    const MDB_val wanted = *key;
    int error = mdb_cursor_get(cursor_, key, value, MDB_SET_RANGE);
    bool isGood = true;
    if (error == 0) {
        isGood = isOnLeaf(key->mv_data);
        if (isGood && key->mv_size == wanted.mv_size &&
            std::memcmp(key->mv_data, wanted.mv_data, wanted.mv_size) == 0)
            return true;
        error = mdb_cursor_get(cursor_, key, value, MDB_PREV);
    } else if (error == MDB_NOTFOUND) {
        error = mdb_cursor_get(cursor_, key, value, MDB_LAST);
    }
    // The header sorts first, so every key searched for has a predecessor unless the file is damaged.
    if (isGood && error == 0 && isBefore(*key, wanted) && isOnLeaf(key->mv_data)) return true;
    status_ = damaged;
    return false;
}

// Takes the filter with this key, or none if the file has none.
bool Reader::readFilter(char record, HostFilter* filter) {
    MDB_val key{1, &record};
    MDB_val words;
    if (!predecessor(&key, &words)) return false;
    const bool found = key.mv_size == 1 && *static_cast<const char*>(key.mv_data) == record;
    *filter = found ? HostFilter(words.mv_data, words.mv_size) : HostFilter();
    if (!found || filter->exists()) return true;
    status_ = damaged;
    return false;
}

// LMDB trusts its pages. One that was overwritten would otherwise read as "no entry covers it".
bool Reader::isOnLeaf(const void* record) const {
    const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(record) - catalog_->mapping();
    if (offset >= catalog_->mappedSize()) return false;
    const std::uintptr_t number = offset / catalog_->pageSize();
    const auto* const page =
        reinterpret_cast<const PageHead*>(catalog_->mapping() + number * catalog_->pageSize());
    return page->number == number && page->kind() == PageHead::leaf;
}

bool Reader::get(std::string_view key, Value* value) {
    MDB_val wanted{key.size(), const_cast<char*>(key.data())};
    MDB_val found;
    if (mdb_get(transaction_, 1, &wanted, &found) == 0 && value->parse(found.mv_data, found.mv_size, key[0]))
        return true;
    status_ = damaged;
    return false;
}

namespace {

std::size_t commonPrefix(const char* a, std::size_t aSize, const char* b, std::size_t bSize) {
    const std::size_t size = std::min(aSize, bSize);
    return static_cast<std::size_t>(std::mismatch(a, a + size, b).first - a);
}

}  // namespace

// Adds the record and those of its ancestors whose key sizes `covers` accepts.
template <class Covers>
bool Reader::addCovering(const MDB_val& key, const MDB_val& data, const Covers& covers, Hits* hits) {
    Value value;
    if (!value.parse(data.mv_data, data.mv_size, *static_cast<const char*>(key.mv_data)))
        return status_ = damaged, false;
    if (covers(key.mv_size) && !hits->add(key.mv_size, value)) return status_ = damaged, false;
    for (unsigned i = value.ancestors; i-- > 0;) {
        const unsigned size = value.ancestor(i);
        Value above;
        if (!covers(size)) continue;
        if (!get(std::string_view(hits->key, size), &above) || !hits->add(size, above))
            return status_ = damaged, false;
    }
    return true;
}

// The hosts' filter names the longest name above the host that has a record, or none. Without a filter, and
// if it was wrong, a search finds it: a prefix of a key sorts before it, and all keys between the two begin
// with that prefix. So every entry that covers the key is either the last record not after the key, or one of
// that record's ancestors, which its value lists.
bool Reader::searchHosts(const Url& url, const HostFilter& filter, Hits* hits) {
    hits->count = 0;
    if (url.kind != Url::name) return searchNetworks(url, hits);
    const auto isAbove = [&](std::size_t size) {
        return size == hits->keySize || (size < hits->keySize && hits->key[size] == '\0');
    };
    MDB_val key{hits->keySize, hits->key};
    MDB_val data;
    if (filter.exists()) {
        HostFilter::Answer answer = HostFilter::no;
        unsigned i = nameCount_;
        while (answer == HostFilter::no && i-- > 0)
            answer = filter.has(names_[i].hash);
        if (answer == HostFilter::damaged) status_ = damaged;
        if (answer != HostFilter::perhaps) return answer == HostFilter::no;
        key.mv_size = names_[i].keySize;
        if (mdb_cursor_get(cursor_, &key, &data, MDB_SET) == 0 && isOnLeaf(data.mv_data))
            return addCovering(key, data, isAbove, hits);
        key = {hits->keySize, hits->key};
    }
    if (!predecessor(&key, &data)) return false;
    const std::size_t common =
        commonPrefix(static_cast<const char*>(key.mv_data), key.mv_size, hits->key, hits->keySize);
    if (common < 2) return true;
    return addCovering(
        key, data, [&](std::size_t size) { return size <= common && isAbove(size); }, hits);
}

// The same for an address and the networks that contain it. The last byte of a record's key is the prefix
// length.
bool Reader::searchNetworks(const Url& url, Hits* hits) {
    MDB_val key{hits->keySize, hits->key};
    MDB_val data;
    if (!predecessor(&key, &data)) return false;
    const char* const found = static_cast<const char*>(key.mv_data);
    Value value;
    if (key.mv_size != hits->keySize || found[0] != hits->key[0] || found[1] != hits->key[1]) return true;
    if (!value.parse(data.mv_data, data.mv_size, found[0])) return status_ = damaged, false;
    const std::size_t addressSize = url.host.size();
    const auto tryPrefix = [&](unsigned prefix, const Value* known) {
        char network[19];
        std::memcpy(network, hits->key, hits->keySize);
        if (prefix > 8 * addressSize) return false;
        maskAddress(network + 2, addressSize, prefix);
        network[hits->keySize - 1] = static_cast<char>(prefix);
        Value above;
        if (known != nullptr) {
            if (std::memcmp(found, network, hits->keySize) != 0) return true;
            above = *known;
        } else {
            char masked[16];
            std::memcpy(masked, found + 2, addressSize);
            maskAddress(masked, addressSize, prefix);
            if (std::memcmp(masked, network + 2, addressSize) != 0) return true;
            if (!get(std::string_view(network, hits->keySize), &above)) return false;
        }
        return hits->add(prefix, above);
    };
    bool good = tryPrefix(static_cast<unsigned char>(found[key.mv_size - 1]), &value);
    for (unsigned i = value.ancestors; good && i-- > 0;)
        good = tryPrefix(value.ancestor(i), nullptr);
    if (!good) status_ = damaged;
    return good;
}

// The records of the host and of what is above it.
bool Reader::findHosts(const Url& url, Hits* hits) {
    std::memcpy(hits->key, hostKey_.data(), hostKey_.size());
    hits->keySize = hostKey_.size();
    for (unsigned i = 0; i < nameCount_ && hosts_.exists(); ++i)
        hosts_.prefetch(names_[i].hash);
    if (!searchHosts(url, hosts_, hits)) return false;
    if (!recentHosts_.exists()) return true;
    Hits& recent = hits_[3];
    std::memcpy(recent.key, hostKey_.data(), hostKey_.size());
    recent.key[0] &= static_cast<char>(~recordCase);
    recent.keySize = hostKey_.size();
    if (!searchHosts(url, recentHosts_, &recent)) return false;
    return hits->change(recent) ? true : (status_ = damaged, false);
}

// REQUIRES: the first hits->base bytes of hits->key are set: the key up to the path.
bool Reader::searchPaths(const Url& url, Hits* hits) {
    hits->count = 0;
    const std::size_t pathSize = std::min(url.path.size(), sizeof hits->key - hits->base);
    encodePath(url.path.data(), pathSize, hits->key + hits->base);
    hits->keySize = hits->base + pathSize;
    MDB_val key{std::min(hits->keySize, maxKey), hits->key};
    MDB_val data;
    if (!predecessor(&key, &data)) return false;
    const char* const found = static_cast<const char*>(key.mv_data);
    const std::size_t common = commonPrefix(found, key.mv_size, hits->key, hits->keySize);
    if (common < hits->base) return true;
    const auto covers = [&](std::size_t size) {
        return size >= hits->base && size <= common && endsAtBoundary(hits->key, hits->keySize, size);
    };
    return addCovering(key, data, covers, hits);
}

// The records of the URL's path and of what is above it. REQUIRES: the first hits->base bytes of hits->key
// are set: the key up to the end of the host.
bool Reader::findPaths(const Url& url, bool recentToo, unsigned port, Hits* hits) {
    if (port != 0) {
        hits->key[hits->base++] = keyPort;
        hits->key[hits->base++] = static_cast<char>(port >> 8U);
        hits->key[hits->base++] = static_cast<char>(port);
    }
    if (!searchPaths(url, hits)) return false;
    if (!recentToo) return true;
    Hits& recent = hits_[3];
    std::memcpy(recent.key, hits->key, hits->base);
    recent.key[0] &= static_cast<char>(~recordCase);
    recent.base = hits->base;
    if (!searchPaths(url, &recent)) return false;
    return hits->change(recent) ? true : (status_ = damaged, false);
}

bool Reader::search(Request* request) {
    const Url& url = *request->url;
    Hits& hosts = hits_[0];
    Hits* const trees[] = {&hits_[1], &hits_[2]};  // paths with the port, paths for all ports
    if (!filtersRead_)
        filtersRead_ = readFilter(hostFilter, &hosts_) && readFilter(recentFilter, &recentHosts_);
    if (!filtersRead_ || !findHosts(url, &hosts)) return false;
    const bool isName = url.kind == Url::name;
    for (unsigned i = 0; i < hosts.count; ++i) {
        const Hits::Hit& host = hosts.hits[i];
        unsigned next[2] = {};
        for (unsigned t = 0; t < 2; ++t) {
            Hits* const tree = trees[t];
            const bool wanted = t == 0 ? (host.value.flags & hasPorts) != 0 && url.port != 0
                                       : (host.value.flags & hasPaths) != 0 && !url.path.empty();
            tree->count = 0;
            if (!wanted) continue;
            tree->key[0] = pathRecord;
            if (isName) {
                tree->base = host.keySize;
                std::memcpy(tree->key + 1, hosts.key + 1, host.keySize - 1);
            } else {
                tree->key[1] = '\0';
                tree->base = hostKey_.size();  // record type, zero byte, family and address
                std::memcpy(tree->key + 2, hosts.key + 1, tree->base - 2);
            }
            if (!findPaths(url, host.isRecent, t == 0 ? url.port : 0, tree)) return false;
        }
        // Merge the two trees: longer paths first, and of equal paths the one with the port first.
        for (;;) {
            const auto pathSize = [&](unsigned t) {
                return next[t] < trees[t]->count
                           ? static_cast<long>(trees[t]->hits[next[t]].keySize - trees[t]->base)
                           : -1L;
            };
            const long sizes[] = {pathSize(0), pathSize(1)};
            if (sizes[0] < 0 && sizes[1] < 0) break;
            const unsigned t = sizes[0] >= sizes[1] ? 0 : 1;
            const Hits::Hit& hit = trees[t]->hits[next[t]++];
            if ((hit.value.flags & isEntry) == 0) continue;
            if (!request->visit(request->context, {{trees[t]->key, hit.keySize}, &hit.value})) return true;
        }
        if ((host.value.flags & isEntry) == 0) continue;
        std::string_view key(hosts.key, host.keySize);
        char network[19];
        if (!isName) {
            std::memcpy(network, hosts.key, hosts.keySize);
            maskAddress(network + 2, url.host.size(), static_cast<unsigned>(host.keySize));
            network[hosts.keySize - 1] = static_cast<char>(host.keySize);
            key = std::string_view(network, hosts.keySize);
        }
        if (!request->visit(request->context, {key, &host.value})) return true;
    }
    return true;
}

namespace {

struct StoredHeader {
    char magic[sizeof formatMagic];
    std::uint32_t version;
    Header header;
};

}  // namespace

std::string headerValue(const Header& header) {
    StoredHeader stored{};
    std::memcpy(stored.magic, formatMagic, sizeof formatMagic);
    stored.version = formatVersion;
    stored.header = header;
    return std::string(reinterpret_cast<const char*>(&stored), sizeof stored);
}

void Reader::runBody(void* context) {
    auto* const request = static_cast<Request*>(context);
    Reader* const reader = request->reader;
    // A second iteration is needed only if two commits overtook this thread.
    for (;;) {
        if (!reader->begin()) return;
        const std::uint64_t version = reader->version_ = mdb_txn_id(reader->transaction_);
        // The meta page of the newest version is overwritten only after the next version has been committed.
        bool whole = reader->lastVersion() == version;
        if (whole) {
            reader->status_ = done;
            if (request->header != nullptr) {
                const char name = headerRecord;
                MDB_val key{1, const_cast<char*>(&name)};
                MDB_val data;
                const bool found = mdb_get(reader->transaction_, 1, &key, &data) == 0 &&
                                   data.mv_size == sizeof(StoredHeader);
                StoredHeader stored{};
                if (found) std::memcpy(&stored, data.mv_data, sizeof stored);
                if (!found || std::memcmp(stored.magic, formatMagic, sizeof formatMagic) != 0 ||
                    stored.version == 0 || stored.version > formatVersion)
                    reader->status_ = damaged;
                *request->header = stored.header;
            } else {
                reader->search(request);
            }
            whole = reader->lastVersion() <= version + 1;
        }
        if (whole) return;
        if (request->restart != nullptr) request->restart(request->context);
    }
}

Reader::Status Reader::run(Request* request) {
    for (;;) {
        status_ = done;
        version_ = 0;
        if (runGuarded(runBody, request)) return status_;
        // The jump left LMDB's function half way: the transaction can only be aborted.
        endTransaction();
        // Was it damage, or did a writer reuse the pages that were being read?
        const auto isOvertaken = [](void* context) {
            auto* const reader = static_cast<Reader*>(context);
            reader->overtaken_ = reader->version_ != 0 && reader->lastVersion() > reader->version_ + 1;
        };
        overtaken_ = false;
        if (!runGuarded(isOvertaken, this) || !overtaken_) return status_ = damaged;
        if (request->restart != nullptr) request->restart(request->context);
    }
}

Reader::Status Reader::visit(const Url& url, Visit see, Restart restart, void* context) {
    hostKey_.assign(1, url.kind == Url::name ? hostRecord : networkRecord);
    if (url.kind != Url::name) hostKey_.push_back(url.kind == Url::ipv4 ? '4' : '6');
    hostKey_.append(url.host);
    // Sorts after all networks that begin at this address.
    if (url.kind != Url::name) hostKey_.push_back('\xff');
    nameCount_ = 0;
    HostHash hash;
    for (std::size_t i = 1; url.kind == Url::name && i <= hostKey_.size(); ++i) {
        if ((i == hostKey_.size() || hostKey_[i] == '\0') && nameCount_ < maxNames)
            names_[nameCount_++] = Name{i, hash.value()};
        if (i < hostKey_.size()) hash.add(hostKey_[i]);
    }
    Request request{this, &url, see, restart, context, nullptr};
    return run(&request);
}

Reader::Status Reader::header(Header* header) {
    Request request{this, nullptr, nullptr, nullptr, nullptr, header};
    return run(&request);
}

Reader::Status Reader::classify(const Url& url, Answer* answer) {
    const auto restart = [](void* context) {
        auto* const result = static_cast<Answer*>(context);
        result->covered = false;
        result->count = 0;
    };
    const auto add = [](void* context, const Covering& covering) {
        auto* const result = static_cast<Answer*>(context);
        result->covered = true;
        for (std::size_t i = 0; i < covering.value->pairCount; ++i)
            result->add(covering.value->pair(i).category);
        return (covering.value->flags & isInstead) == 0;
    };
    restart(answer);
    return visit(url, add, restart, answer);
}

}  // namespace catalog
