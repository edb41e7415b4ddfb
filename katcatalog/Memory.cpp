#include "Memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace katcatalog {

namespace {

constexpr std::int64_t second = 1000000000;
// Times of files are as coarse as their file system, and at least as coarse as the kernel's clock. A file
// that was changed this recently may change again without a new time.
constexpr std::int64_t uncertain = 2 * second;

std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * second + time.tv_nsec;
}

bool takeState(const struct stat& state, KnownList* list) {
    if (!S_ISREG(state.st_mode)) return false;
    list->size = static_cast<std::uint64_t>(state.st_size);
    list->inode = state.st_ino;
    list->modified = nanoseconds(state.st_mtim);
    list->changed = nanoseconds(state.st_ctim);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t limit = nanoseconds(now) - uncertain;
    if (list->modified > limit || list->changed > limit) list->changed = 0;
    return true;
}

class Checksum {
public:
    Checksum() : state_(XXH3_createState()) { XXH3_128bits_reset(state_); }
    ~Checksum() { XXH3_freeState(state_); }
    Checksum(const Checksum&) = delete;
    Checksum& operator=(const Checksum&) = delete;

    void add(const void* data, std::size_t size) { XXH3_128bits_update(state_, data, size); }
    void finish(std::uint64_t (*result)[2]) const {
        const XXH128_hash_t hash = XXH3_128bits_digest(state_);
        (*result)[0] = hash.low64;
        (*result)[1] = hash.high64;
    }

private:
    XXH3_state_t* state_;
};

}  // namespace

bool examine(const std::string& path, KnownList* list) {
    const int fd = path == "-" ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat state {};
    bool good = fstat(fd, &state) == 0 && takeState(state, list);
    Checksum checksum;
    std::vector<char> buffer(good ? 1U << 18U : 1);
    while (good) {
        const ssize_t got = read(fd, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        good = got >= 0;
        if (got <= 0) break;
        checksum.add(buffer.data(), static_cast<std::size_t>(got));
    }
    close(fd);
    checksum.finish(&list->checksum);
    return good;
}

bool isAsBefore(const std::string& path, const KnownList& list) {
    struct stat state {};
    KnownList now{};
    return path != "-" && stat(path.c_str(), &state) == 0 && takeState(state, &now) &&
           now.size == list.size && now.inode == list.inode && now.modified == list.modified &&
           (now.changed == list.changed || list.changed == 0);
}

bool isUnchanged(const std::string& path, KnownList* list) {
    if (list->changed != 0 && isAsBefore(path, *list)) return true;
    KnownList now = *list;
    if (!examine(path, &now) || std::memcmp(now.checksum, list->checksum, sizeof now.checksum) != 0)
        return false;
    *list = now;
    return true;
}

namespace {

std::string rulesKey(const std::string& rules) {
    Checksum checksum;
    checksum.add(rules.data(), rules.size());
    std::uint64_t result[2];
    checksum.finish(&result);
    return std::string(reinterpret_cast<const char*>(result), sizeof result);
}

}  // namespace

std::vector<KnownList> parseMemory(const std::string& stored, const std::string& rules) {
    const std::string key = rulesKey(rules);
    if (stored.compare(0, key.size(), key) != 0 || (stored.size() - key.size()) % sizeof(KnownList) != 0)
        return {};
    std::vector<KnownList> lists((stored.size() - key.size()) / sizeof(KnownList));
    if (!lists.empty()) std::memcpy(lists.data(), stored.data() + key.size(), stored.size() - key.size());
    return lists;
}

std::string memoryValue(const std::vector<KnownList>& lists, const std::string& rules) {
    return rulesKey(rules).append(reinterpret_cast<const char*>(lists.data()),
                                  lists.size() * sizeof(KnownList));
}

}  // namespace katcatalog
