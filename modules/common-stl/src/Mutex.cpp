#include "Mutex.h"

#include <errno.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cassert>
#include <cstdio>
#include <cstring>
#include <typeinfo>

namespace QOR_SPACE {

QorObject::~QorObject() = default;

const char* QorObject::toString() const {
    return typeid(*this).name();
}

Mutex::Mutex() {
    pthread_mutex_init(&mutex, nullptr);
}

Mutex::~Mutex() {
    pthread_mutex_destroy(&mutex);
}

int Mutex::lock() {
    return pthread_mutex_lock(&mutex);
}

int Mutex::trylock() {
    return pthread_mutex_trylock(&mutex);
}

int Mutex::unlock() {
    return pthread_mutex_unlock(&mutex);
}

Monitor::Monitor(Mutex& toHold) : mutex(toHold) {
    mutex.lock();
}

Monitor::~Monitor() {
    mutex.unlock();
}

Condition::Condition(Mutex& boundMutex) : mutex(boundMutex) {
    pthread_cond_init(&condition, nullptr);
}

Condition::~Condition() {
    pthread_cond_destroy(&condition);
}

int Condition::wait() {
    return pthread_cond_wait(&condition, &mutex.mutex);
}

int Condition::wait(int seconds) {
    timespec deadline{};
    deadline.tv_sec = time(nullptr) + seconds;
    return pthread_cond_timedwait(&condition, &mutex.mutex, &deadline);
}

int Condition::notify() {
    return pthread_cond_signal(&condition);
}

int Condition::notifyAll() {
    return pthread_cond_broadcast(&condition);
}

int Condition::lock() {
    return mutex.lock();
}

int Condition::unlock() {
    return mutex.unlock();
}

Semaphore::Semaphore(int initialCount) : count(initialCount), available(mutex) {
    assert(count >= 1);
}

Semaphore::~Semaphore() = default;

int Semaphore::wait() {
    Monitor held(mutex);
    while (count <= 0) {
        available.wait();
    }
    --count;
    return 0;
}

int Semaphore::trywait() {
    Monitor held(mutex);
    if (count <= 0) return -1;
    --count;
    return 0;
}

int Semaphore::post() {
    Monitor held(mutex);
    ++count;
    if (count > 0) available.notify();
    return 0;
}

RWLock::RWLock() : readers(0), writer(0), writable(mutex), readable(mutex) {}

RWLock::~RWLock() = default;

int RWLock::rdlock() {
    Monitor held(mutex);
    while (writer != 0) {
        readable.wait();
    }
    ++readers;
    return 0;
}

int RWLock::tryrdlock() {
    Monitor held(mutex);
    if (writer != 0) return -1;
    ++readers;
    return 0;
}

int RWLock::wrlock() {
    Monitor held(mutex);
    while (writer != 0 || readers != 0) {
        writable.wait();
    }
    writer = 1;
    return 0;
}

int RWLock::trywrlock() {
    Monitor held(mutex);
    if (writer != 0 || readers != 0) return -1;
    writer = 1;
    return 0;
}

int RWLock::unlock() {
    Monitor held(mutex);
    if (writer != 0) {
        --writer;
        writable.notify();
        readable.notifyAll();
    } else {
        --readers;
        if (readers == 0) writable.notify();
    }
    return 0;
}

namespace {

// left + right modulo 2 to the power of 32.
std::int32_t wrappingSum(std::int32_t left, std::uint32_t right) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) + right);
}

}  // namespace

Sequence::Sequence(int initVal) : nextValue(initVal) {
    assert(initVal >= 0);
}

Sequence::~Sequence() = default;

int Sequence::getNext() {
    Monitor held(mutex);
    const std::int32_t taken = nextValue;
    if (taken < 0) {
        nextValue = 0;
        return 0;
    }
    nextValue = wrappingSum(taken, 1);
    return taken;
}

int Sequence::getNext(unsigned int size) {
    assert(size > 0);
    Monitor held(mutex);
    const std::int32_t first = nextValue < 0 ? 0 : nextValue;
    nextValue = wrappingSum(first, size);
    return first;
}

namespace {

// Opens the lock file, creating it if it is missing. In a sticky folder the kernel refuses O_CREAT on a file
// of another user (proc(5), fs.protected_regular), so an existing file is opened without it.
int openLockFile(const char* path) {
    const int flags = O_RDWR | O_CLOEXEC;
    const int existing = ::open(path, flags);
    return existing >= 0 ? existing : ::open(path, flags | O_CREAT, 0600);
}

// Regular and without a second name. Anything else may be another file, whose mode and record locks are not
// ours to change.
bool isPlainLockFile(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
}

// As openLockFile, with mode 0666. Returns -1, and changes nothing, if the file is not a plain one. An
// existing file is examined through an O_PATH descriptor: closing a descriptor of any other kind would
// release the record locks that this process holds on the file, for example on its pid file if somebody has
// linked that one here.
int openSharedLockFile(const char* path) {
    int fd = ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 && errno == EEXIST) {
        const int examined = ::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
        if (examined >= 0 && isPlainLockFile(examined)) {
            // Through /proc this is the same file even if the path has been replaced meanwhile.
            char link[32];
            std::snprintf(link, sizeof(link), "/proc/self/fd/%d", examined);
            fd = ::open(link, O_RDWR | O_CLOEXEC);
            if (fd < 0 && errno == ENOENT)
                fd = ::open(path, O_RDWR | O_NOFOLLOW | O_CLOEXEC);  // without /proc
        }
        if (examined >= 0) ::close(examined);
    }
    if (fd >= 0) fchmod(fd, 0666);
    return fd;
}

struct flock wholeFile(short type) {
    struct flock request {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    request.l_start = 0;
    request.l_len = 0;
    return request;
}

}  // namespace

FileLock::FileLock(const std::string& lockPath, bool widenMode)
    : fd(-1), lockRequest(wholeFile(F_WRLCK)), unlockRequest(wholeFile(F_UNLCK)), path(), widen(false) {
    setPath(lockPath, widenMode);
}

FileLock::~FileLock() {
    close();
}

void FileLock::setPath(const std::string& lockPath, bool widenMode) {
    close();
    widen = widenMode;
    if (lockPath.empty()) return;
    path[lockPath.copy(path, sizeof(path) - 1)] = '\0';
    fd = widen ? openSharedLockFile(path) : openLockFile(path);
    lockRequest = wholeFile(F_WRLCK);
    unlockRequest = wholeFile(F_UNLCK);
}

int FileLock::lock() {
    return fd < 0 ? -1 : fcntl(fd, F_SETLKW, &lockRequest);
}

int FileLock::unlock() {
    return fd < 0 ? -1 : fcntl(fd, F_SETLKW, &unlockRequest);
}

int FileLock::close() {
    if (fd < 0 || ::close(fd) != 0) return -1;
    fd = -1;
    return 0;
}

int FileLock::unlink() {
    return fd < 0 ? -1 : ::unlink(path);
}

}  // namespace QOR_SPACE
