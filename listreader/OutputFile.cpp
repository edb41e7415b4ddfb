#include "listreader/OutputFile.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "listreader/Console.h"
#include "listreader/Failure.h"

namespace listreader {

namespace {

constexpr mode_t outputMode = 0644;
constexpr mode_t permissionBits = 0777;
constexpr std::size_t streamBuffer = 1U << 20U;  // bytes
constexpr int linkLimit = 40;                    // as the kernel's
constexpr const char* daemonUser = "katd";

// The name that a signal handler removes. It changes only while `pending` is 0.
char pendingPath[PATH_MAX];
volatile std::sig_atomic_t pending = 0;

void removePending(int number) {
    if (pending != 0) unlink(pendingPath);
    std::signal(number, SIG_DFL);
    raise(number);
}

// Those that end a program by default. Faults of the program itself are left alone.
constexpr int endingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT,   SIGABRT, SIGUSR1, SIGUSR2,   SIGPIPE, SIGALRM,
                                 SIGTERM, SIGXCPU, SIGVTALRM, SIGPROF, SIGPWR,  SIGSTKFLT, SIGIO};

// Creates the temporary file. Signals are blocked meanwhile, so that none leaves it behind.
int createRemovable(std::string* path) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int number : endingSignals)
        sigaddset(&blocked, number);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    const int fd = mkostemp(path->data(), O_CLOEXEC);
    const int error = errno;
    if (fd >= 0 && path->size() < sizeof pendingPath) {
        std::memcpy(pendingPath, path->c_str(), path->size() + 1);
        pending = 1;
        for (const int number : endingSignals) {
            if (std::signal(number, removePending) == SIG_IGN) std::signal(number, SIG_IGN);
        }
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return fd;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// What another user has put into a folder like /tmp may be there to divert what is written, by the kernel's
// own rule (proc(5), protected_symlinks).
void refusePlanted(const std::string& path, const struct stat& status) {
    struct stat folder {};
    if (stat(folderOf(path).c_str(), &folder) != 0 || (folder.st_mode & S_ISVTX) == 0 ||
        (folder.st_mode & (S_IWOTH | S_IWGRP)) == 0)
        return;
    if (status.st_uid == geteuid() || status.st_uid == folder.st_uid) return;
    throw Failure(wrong, path + " belongs to another user, in a folder where anybody may put files: remove " +
                             "it, or choose another folder");
}

std::string readLink(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    if (length < 0) throw fileFailure("follow the link", path, errno);
    std::string result(target, static_cast<std::size_t>(length));
    return result[0] == '/' ? result : folderOf(path) + "/" + result;
}

bool mayRead(const struct passwd& user, const struct stat& status) {
    if (status.st_uid == user.pw_uid) return (status.st_mode & S_IRUSR) != 0;
    std::vector<gid_t> groups(64);
    int count = static_cast<int>(groups.size());
    if (getgrouplist(user.pw_name, user.pw_gid, groups.data(), &count) >= 0)
        groups.resize(static_cast<std::size_t>(count));
    const bool isInGroup = std::find(groups.begin(), groups.end(), status.st_gid) != groups.end();
    return (status.st_mode & (isInGroup ? S_IRGRP : S_IROTH)) != 0;
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
    resolve();
    beside_ = path_ + ".XXXXXX";
    const int fd = createRemovable(&beside_);
    if (fd < 0) throw fileFailure("write beside", path_, errno);
    stream_ = fdopen(fd, "w");
    if (stream_ == nullptr) {
        const int openError = errno;
        close(fd);
        unlink(beside_.c_str());
        pending = 0;
        throw fileFailure("write", beside_, openError);
    }
    std::setvbuf(stream_, nullptr, _IOFBF, streamBuffer);
}

OutputFile::~OutputFile() {
    if (stream_ != nullptr) std::fclose(stream_);
    if (!beside_.empty()) unlink(beside_.c_str());
    pending = 0;
}

// Follows links, and looks at what is there.
void OutputFile::resolve() {
    for (int links = 0; lstat(path_.c_str(), &replaced_) == 0; ++links) {
        refusePlanted(path_, replaced_);
        if (S_ISREG(replaced_.st_mode)) {
            replaces_ = true;
            return;
        }
        if (!S_ISLNK(replaced_.st_mode))
            throw Failure(wrong,
                          path_ + " is not a regular file, and would be replaced: choose another path");
        if (links == linkLimit) throw fileFailure("follow the link", path_, ELOOP);
        path_ = readLink(path_);
    }
}

void OutputFile::write(const char* text, std::size_t length) {
    if (std::fwrite(text, 1, length, stream_) != length) fail("write");
}

// Up to now the file has mode 0600.
void OutputFile::setAttributes() {
    const int fd = fileno(stream_);
    const mode_t mask = umask(0);
    umask(mask);
    const mode_t mode = replaces_ ? replaced_.st_mode & permissionBits : outputMode & ~mask;
    struct stat status {};
    // The owner first: changing it may clear bits of the mode.
    const bool isOwned = !replaces_ || fchown(fd, replaced_.st_uid, replaced_.st_gid) == 0 ||
                         fchown(fd, static_cast<uid_t>(-1), replaced_.st_gid) == 0;
    static_cast<void>(isOwned);  // a note follows
    if (fchmod(fd, mode) != 0) fail("set the mode of");
    if (fstat(fd, &status) != 0) fail("examine");
    if (replaces_ && (status.st_uid != replaced_.st_uid || status.st_gid != replaced_.st_gid)) {
        tell("note: " + path_ + " belonged to user " + std::to_string(replaced_.st_uid) + " and group " +
             std::to_string(replaced_.st_gid) + ", now to user " + std::to_string(status.st_uid) +
             " and group " + std::to_string(status.st_gid) + ": only root can keep an owner");
    }
    const struct passwd* user = getpwnam(daemonUser);
    if (user != nullptr && !mayRead(*user, status)) {
        tell("note: the user katd may not read " + path_ + ": if katd is to load it, run chmod a+r " + path_ +
             ", or chgrp katd and chmod g+r");
    }
}

void OutputFile::commit() {
    if (std::fflush(stream_) != 0) fail("write");
    setAttributes();
    if (fsync(fileno(stream_)) != 0) fail("write");
    std::FILE* stream = stream_;
    stream_ = nullptr;
    if (std::fclose(stream) != 0) fail("write");
    if (std::rename(beside_.c_str(), path_.c_str()) != 0) fail("replace");
    pending = 0;
    beside_.clear();
    // The new name lasts once the folder is on disk. Some file systems cannot sync a folder, which does no
    // harm.
    const int fd = open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

void OutputFile::fail(const char* what) const {
    throw fileFailure(what, path_, errno);
}

}  // namespace listreader
