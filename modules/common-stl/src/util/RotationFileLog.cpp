#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "Exception.h"
#include "LogModule.h"
#include "StringHelper.h"
#include "Utils.h"
#include "io/File.h"
#include "util/Log.h"

namespace QOR_SPACE {

namespace {

constexpr unsigned long rotationSizeLimitKiB = 2097151;  // its bytes still fit 31 bits
constexpr long nearThresholdBytes = 2048;  // the file is closed after a record this close to the threshold
constexpr const char* lockFolder = "/tmp/";
constexpr const char* writeLockSuffix = ".lock";
constexpr const char* rotateLockSuffix = ".rlock";
constexpr const char* movedAsideSuffix = ".0";

unsigned long rotationSizeKiB() {
    return std::min(Log::getRotationSize(), rotationSizeLimitKiB);
}

long thresholdBytes(unsigned long sizeKiB) {
    return static_cast<long>(sizeKiB) * 1024;
}

bool exists(const std::string& path) {
    return File(path).exists();
}

// Renames `from`, which must be writable, without replacing a file: without a common lock file, another
// process may create `to` at any time. False with errno set on failure.
bool moveTo(const std::string& from, const std::string& to) {
    if (!File(from).canWrite()) return false;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    // The file system cannot do that.
    if (exists(to)) {
        errno = EEXIST;
        return false;
    }
    return File(from).renameTo(to);
}

// True if the file's last byte is not a line feed: a write stopped there.
bool endsInsideLine(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    char last = '\n';
    if (lseek(fd, -1, SEEK_END) >= 0 && read(fd, &last, 1) != 1) last = '\n';
    close(fd);
    return last != '\n';
}

// Waits for the record lock. The kernel looks for deadlocks between processes, not threads: if each of two
// processes holds one lock in one thread and waits for the other lock in a second thread, it reports EDEADLK
// (fcntl(2)), although both can continue. After any other failure the log works without the lock.
void takeRecordLock(FileLock& lock) {
    while (lock.isValid() && lock.lock() != 0 && (errno == EINTR || errno == EDEADLK)) {
        if (errno == EDEADLK) {
            const timespec pause{0, 5000000};
            nanosleep(&pause, nullptr);
        }
    }
}

// The mutex is taken first and released last: otherwise a thread would release the process's record lock
// while another thread relies on it.
void takePair(Mutex& mutex, FileLock& lock) QOR_NO_THREAD_SAFETY_ANALYSIS {
    mutex.lock();
    takeRecordLock(lock);
}

void releasePair(Mutex& mutex, FileLock& lock) QOR_NO_THREAD_SAFETY_ANALYSIS {
    lock.unlock();
    mutex.unlock();
}

// Holds a pair during its lifetime.
class PairHold {
public:
    PairHold(Mutex& toHold, FileLock& toLock) : mutex(toHold), lock(toLock) { takePair(mutex, lock); }
    ~PairHold() { releasePair(mutex, lock); }
    PairHold(const PairHold&) = delete;
    PairHold& operator=(const PairHold&) = delete;

private:
    Mutex& mutex;
    FileLock& lock;
};

// Releases a held pair during its lifetime.
class PairPause {
public:
    PairPause(Mutex& held, FileLock& locked) : mutex(held), lock(locked) { releasePair(mutex, lock); }
    ~PairPause() { takePair(mutex, lock); }
    PairPause(const PairPause&) = delete;
    PairPause& operator=(const PairPause&) = delete;

private:
    Mutex& mutex;
    FileLock& lock;
};

// Creates a missing lock file for all users. A symbolic link in its place counts as existing, and O_EXCL does
// not follow it: anybody can create one in that folder.
void ensureLockFile(const std::string& name) {
    struct stat status {};
    if (lstat(name.c_str(), &status) == 0) return;
    const int fd = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return;
    fchmod(fd, 0666);
    close(fd);
}

}  // namespace

RotationFileLog::RotationFileLog(OutputStream* outputStream)
    : FileLog(outputStream), writeLock("", false), rotateLock("", false) {}

RotationFileLog::~RotationFileLog() = default;

void RotationFileLog::write(const std::string& text) {
    FileLog::write(text);
}

void RotationFileLog::write(const LogEntry& entry) {
    FileLog::write(entry);
}

void RotationFileLog::write(const std::string& text, Log::LogLevel level) {
    FileLog::write(text, level);
}

bool RotationFileLog::setPath(const char* newPath) {
    if (!FileLog::setPath(newPath)) return false;
    const std::string lockBase = lockFolder + File(path).getName();
    const std::string writeLockFile = lockBase + writeLockSuffix;
    const std::string rotateLockFile = lockBase + rotateLockSuffix;
    ensureLockFile(writeLockFile);
    ensureLockFile(rotateLockFile);
    if (!writeLock.isValid()) writeLock.setPath(writeLockFile, true);
    // A rotation in another thread may be using the lock; then the next record opens it.
    if (!rotateLock.isValid() && rotateMutex.trylock() == 0) {
        rotateLock.setPath(rotateLockFile, true);
        rotateMutex.unlock();
    }
    return true;
}

void RotationFileLog::beforeWrite() {
    takePair(writeMutex, writeLock);
    try {
        const unsigned long sizeKiB = rotationSizeKiB();
        if (sizeKiB != 0 && File(path).length() >= thresholdBytes(sizeKiB)) rotateFiles();
        setPath(path.c_str());
        if (writeFailed && stream != nullptr) {
            if (endsInsideLine(path)) stream->write(endOfLine);
            writeFailed = false;
        }
    } catch (...) {
        releasePair(writeMutex, writeLock);
        throw;
    }
}

void RotationFileLog::afterWrite() {
    try {
        const unsigned long sizeKiB = rotationSizeKiB();
        if (sizeKiB != 0 && File(path).length() >= thresholdBytes(sizeKiB) - nearThresholdBytes)
            FileLog::close();
    } catch (const IOException& failure) {
        releasePair(writeMutex, writeLock);
        reportFailure(failure.getMessage());
        return;
    } catch (...) {
        releasePair(writeMutex, writeLock);
        throw;
    }
    releasePair(writeMutex, writeLock);
}

int RotationFileLog::rotateFiles() {
    return rotate(false);
}

int RotationFileLog::frotateFiles() {
    return rotate(true);
}

int RotationFileLog::rotate(bool forced) {
    try {
        FileLog::close();
        if (!moveAside(forced)) {
            // P.0 of an earlier rotation has not been renamed yet. Another writer may rotate in the meantime,
            // so the size is checked again. If P.0 still exists then, the next record tries again.
            {
                PairPause pause(writeMutex, writeLock);
                makerotate();
            }
            moveAside(forced && File(path).length() > 0);
        }
        setPath(path.c_str());
        PairPause pause(writeMutex, writeLock);
        return makerotate();
    } catch (const IOException& failure) {
        PairPause pause(writeMutex, writeLock);
        reportFailure(failure.getMessage());
        return -1;
    }
}

// First stage: renames P to P.0 if due. Returns false if P.0 exists.
bool RotationFileLog::moveAside(bool forced) {
    if (!forced && File(path).length() <= thresholdBytes(rotationSizeKiB())) return true;
    return moveTo(path, path + movedAsideSuffix) || errno != EEXIST;
}

int RotationFileLog::makerotate() {
    try {
        std::string aside;
        {
            Monitor held(writeMutex);
            aside = path + movedAsideSuffix;
        }
        PairHold hold(rotateMutex, rotateLock);
        return exists(aside) ? renameFiles(aside) : 0;
    } catch (const IOException& failure) {
        reportFailure(failure.getMessage());
        return -1;
    }
}

int RotationFileLog::renameFiles(std::string name) {
    // `name` and its successors up to the first name without a file, or to the last number, where the name
    // stays the same.
    std::vector<std::string> chain;
    chain.push_back(std::move(name));
    bool unbroken = true;
    while (unbroken) {
        const std::string next = nextFile(chain.back());
        unbroken = next != chain.back() && exists(next);
        chain.push_back(next);
    }
    int result = -1;
    for (std::size_t i = chain.size() - 1; i > 0; --i) {
        result = moveTo(chain[i - 1], chain[i]) ? 0 : -1;
        const int reason = errno;
        // In the way, or gone already: another process shifts the same files, or the last one could not be
        // removed.
        if (result == 0 || moveFailureReported || reason == EEXIST || reason == ENOENT) continue;
        moveFailureReported = true;
        reportFailure("The log no longer rotates: " + chain[i - 1] + ": " + std::strerror(reason));
    }
    return result;
}

std::string RotationFileLog::nextFile(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos) return name;
    const std::string prefix = name.substr(0, dot + 1);
    const std::string digits = name.substr(dot + 1);
    long long number = 0;
    try {
        number = Utils::parseInt(digits.c_str(), static_cast<int>(digits.size()), 10);
    } catch (const Exception&) {
        return name;
    }
    const std::int32_t limit = _extensionLimits.load(std::memory_order_relaxed);
    if (number + 1 <= limit) return prefix + StringHelper::ntoa(static_cast<int>(number + 1));
    std::string last = prefix + StringHelper::ntoa(limit);
    File(last).remove();
    return last;
}

int RotationFileLog::reqRotation() {
    PairHold hold(writeMutex, writeLock);
    return File(path).length() > 0 ? frotateFiles() : 0;
}

void RotationFileLog::deleteBySize(unsigned long size) {
    const unsigned long sizeKiB = rotationSizeKiB();
    if (sizeKiB == 0) return;
    const std::string prefix = path + '.';
    // The number is 0 after an overflow.
    for (unsigned long number = size / sizeKiB + 1; number != 0; ++number) {
        const std::string name = prefix + std::to_string(number);
        if (!exists(name)) return;
        File(name).remove();
    }
}

void RotationFileLog::clear() {
    FileLog::close();
    const std::string logName = File(path).getName();
    if (logName.empty()) return;  // every name starts with ""
    const std::string folder = File(File(path).getAbsolutePath()).getParent();
    std::vector<std::string> names;
    File(folder).list(names);
    for (const std::string& name : names) {
        if (StringHelper::startsWith(name.c_str(), logName.c_str())) File(folder, name).remove();
    }
}

DebugLog::DebugLog(OutputStream* outputStream) : RotationFileLog(outputStream), enabled(false) {}

DebugLog::~DebugLog() = default;

void DebugLog::beforeWrite() {
    RotationFileLog::beforeWrite();
}

void DebugLog::afterWrite() {
    RotationFileLog::afterWrite();
}

std::string DebugLog::nextFile(const std::string& name) {
    return RotationFileLog::nextFile(name);
}

}  // namespace QOR_SPACE
