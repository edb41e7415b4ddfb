#include "io/File.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "../ThrowPositions.h"
#include "Exception.h"
#include "StringHelper.h"

namespace QOR_SPACE {

namespace {

constexpr mode_t fileBit = 0100000;
constexpr mode_t directoryBit = 0040000;
constexpr mode_t ownerWriteBit = 0200;
constexpr mode_t allWriteBits = 0222;

bool statusOf(const std::string& path, struct stat& status) {
    return stat(path.c_str(), &status) == 0;
}

// parent and child with one separator between them.
std::string joined(const std::string& parent, const std::string& child) {
    if (parent.empty()) return child;
    return StringHelper::endsWith(parent, File::pathSeparator) ? parent + child
                                                               : parent + File::pathSeparator + child;
}

// First pass of the canonical form: removes "./" segments and a "." at the end.
std::string withoutDots(const std::string& path) {
    std::string result;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const bool segment =
            i > 0 && i + 1 < path.size() && path[i] == '.' && path[i - 1] == '/' && path[i + 1] == '/';
        if (segment) {
            ++i;
        } else {
            result += path[i];
        }
    }
    if (result.size() > 1 && StringHelper::endsWith(result, "/.")) result.pop_back();
    return result;
}

// Second pass: replaces runs of separators by one.
std::string withSingleSeparators(const std::string& path) {
    std::string result;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '/' && i + 1 < path.size() && path[i + 1] == '/') continue;
        result += path[i];
    }
    return result;
}

// Third pass: removes each ".." and the segment before it. `separators` is a stack of the separators' offsets
// in the output: the top belongs to "..", the entry below it to the segment to be removed.
std::string withoutParents(const std::string& path) {
    std::string result;
    std::vector<std::size_t> separators;
    std::size_t i = 0;
    while (i < path.size()) {
        if (path[i] == '/') separators.push_back(result.size());
        if (path.compare(i, 4, "/../") != 0) {
            result += path[i++];
            continue;
        }
        if (separators.size() < 2) {
            result.clear();
        } else {
            result.resize(separators[separators.size() - 2]);
            separators.resize(separators.size() - 2);
        }
        i += 3;
    }
    if (result.size() > 2 && StringHelper::endsWith(result, "/..")) {
        result.resize(separators.size() < 2 ? 1 : separators[separators.size() - 2] + 1);
    }
    return result;
}

}  // namespace

File::File(const std::string& filePath) : path(filePath) {}

File::File(const std::string& parent, const std::string& child) : path(joined(parent, child)) {}

File::~File() = default;

std::string File::getSeparator() {
    return pathSeparator;
}

std::string File::getDefaultTempDir() {
    return "/tmp";
}

int File::createTempFile(const std::string& prefix, const std::string& directory, std::string& name) {
    std::string generated = StringHelper::endsWith(directory, pathSeparator)
                                ? directory + prefix
                                : directory + pathSeparator + prefix;
    generated += "XXXXXX";
    const int fd = mkostemp(&generated[0], O_CLOEXEC);
    if (fd < 0) return -1;
    name = generated;
    return fd;
}

int File::createTempFile(const std::string& prefix, std::string& name) {
    return createTempFile(prefix, getDefaultTempDir(), name);
}

bool File::isAbsolute() const {
    return StringHelper::startsWith(path.c_str(), pathSeparator);
}

std::string File::getName() const {
    const std::size_t separator = path.rfind(pathSeparatorChar);
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string File::getParent() const {
    const std::size_t separator = path.rfind(pathSeparatorChar);
    if (separator == std::string::npos) return std::string();
    if (separator == 0) return path.size() == 1 ? std::string() : std::string(pathSeparator);
    return path.substr(0, separator);
}

std::string File::getAbsolutePath() const {
    if (isAbsolute()) return path;
    char workingDirectory[4096] = "";
    if (getcwd(workingDirectory, sizeof(workingDirectory)) == nullptr) workingDirectory[0] = '\0';
    return workingDirectory + getSeparator() + path;
}

std::string File::getCanonicalPath() const {
    try {
        return withoutParents(withSingleSeparators(withoutDots(getAbsolutePath())));
    } catch (const std::bad_alloc&) {
        throwException<OutOfMemoryException>(throwPosition::canonicalPathMemory, throwPosition::outOfMemory);
    }
}

bool File::compareTo(const std::string& other) const {
    return path == other;
}

bool File::exists() const {
    return access(path.c_str(), F_OK) == 0;
}

bool File::canRead() const {
    return access(path.c_str(), R_OK) == 0;
}

bool File::canWrite() const {
    return access(path.c_str(), W_OK) == 0;
}

bool File::isFile() const {
    struct stat status {};
    return statusOf(path, status) && (status.st_mode & fileBit) != 0;
}

bool File::isDirectory() const {
    struct stat status {};
    return statusOf(path, status) && (status.st_mode & directoryBit) != 0;
}

bool File::isSame(int fd) const {
    struct stat named {};
    struct stat opened {};
    return statusOf(path, named) && fstat(fd, &opened) == 0 && named.st_ino == opened.st_ino;
}

bool File::isReadOnly() const {
    struct stat status {};
    return canRead() && statusOf(path, status) && (status.st_mode & ownerWriteBit) == 0;
}

bool File::setReadOnly() const {
    struct stat status {};
    return canWrite() && statusOf(path, status) &&
           chmod(path.c_str(), status.st_mode & 07777 & ~allWriteBits) == 0;
}

bool File::lastModified(long& seconds) const {
    struct stat status {};
    if (!statusOf(path, status)) return false;
    seconds = static_cast<long>(status.st_mtime);
    return true;
}

bool File::setLastModified(long seconds) const {
    struct stat status {};
    if (!canWrite() || !statusOf(path, status)) return false;
    utimbuf times{};
    times.actime = status.st_atime;
    times.modtime = seconds;
    return utime(path.c_str(), &times) == 0;
}

long File::length() const {
    if (!canRead() || !isFile()) return -1;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    const off_t end = lseek(fd, 0, SEEK_END);
    const int seekError = errno;
    close(fd);
    errno = seekError;
    return end > LONG_MAX ? LONG_MAX : static_cast<long>(end);
}

bool File::createNewFile() const {
    if (exists()) return false;
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    close(fd);
    return true;
}

bool File::remove() const {
    return (isFile() ? unlink(path.c_str()) : rmdir(path.c_str())) == 0;
}

bool File::renameTo(const std::string& newPath) {
    if (!canWrite() || rename(path.c_str(), newPath.c_str()) != 0) return false;
    path = newPath;
    return true;
}

bool File::mkdir() const {
    return ::mkdir(path.c_str(), 0777) == 0;
}

bool File::mkdirs() const {
    if (exists() || mkdir()) return true;
    const std::string parent = getParent();
    return !parent.empty() && File(parent).mkdirs() && mkdir();
}

void File::list(std::vector<std::string>& names) const {
    if (!isDirectory()) return;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) return;
    const std::size_t countBefore = names.size();
    try {
        while (const dirent* entry = readdir(directory.get())) {
            const std::string name = entry->d_name;
            if (name.empty()) return;
            if (name != "." && name != "..") names.push_back(name);
        }
    } catch (const std::bad_alloc&) {
        names.resize(countBefore);
        throwException<OutOfMemoryException>(throwPosition::directoryListMemory, throwPosition::outOfMemory);
    }
}

bool File::removeAll() const {
    if (isFile()) return remove();
    std::vector<std::string> names;
    list(names);
    for (const std::string& name : names) {
        if (!File(path, name).removeAll()) return false;
    }
    return remove();
}

}  // namespace QOR_SPACE
