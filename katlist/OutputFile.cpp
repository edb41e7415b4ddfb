#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "ExitStatus.h"

namespace katlist {

namespace fs = std::filesystem;

namespace {

constexpr mode_t outputMode = 0644;
constexpr std::size_t streamBuffer = 1U << 20U;  // bytes

// The name that a signal handler removes. It is changed only while `pending` is 0.
char pendingPath[PATH_MAX];
volatile std::sig_atomic_t pending = 0;

void removePending(int number) {
    if (pending != 0) unlink(pendingPath);
    std::signal(number, SIG_DFL);
    raise(number);
}

// Creates the file and sees to it that a signal removes it. Signals wait meanwhile: none finds it half done.
int createRemovable(std::string* path) {
    constexpr int numbers[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    sigset_t held;
    sigset_t before;
    sigemptyset(&held);
    for (const int number : numbers)
        sigaddset(&held, number);
    sigprocmask(SIG_BLOCK, &held, &before);
    const int fd = mkostemp(path->data(), O_CLOEXEC);
    const int error = errno;
    if (fd >= 0 && path->size() < sizeof pendingPath) {
        std::memcpy(pendingPath, path->c_str(), path->size() + 1);
        pending = 1;
        for (const int number : numbers) {
            if (std::signal(number, removePending) == SIG_IGN) std::signal(number, SIG_IGN);
        }
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return fd;
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
    std::error_code error;
    if (fs::is_symlink(path, error)) {
        path_ = fs::canonical(path, error).string();
        if (error) throw fileFailure("follow the link", path, error.value());
    }
    if (fs::exists(path_, error) && !fs::is_regular_file(path_, error)) {
        throw Failure(wrong, path + " is no regular file: a list replaces what is there, name another one");
    }
    beside_ = path_ + ".XXXXXX";
    const int fd = createRemovable(&beside_);
    if (fd < 0) throw fileFailure("write beside", path_, errno);
    const mode_t mask = umask(0);
    umask(mask);
    const bool modeIsSet = fchmod(fd, outputMode & ~mask) == 0;
    stream_ = modeIsSet ? fdopen(fd, "w") : nullptr;
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

void OutputFile::write(const char* text, std::size_t length) {
    if (std::fwrite(text, 1, length, stream_) != length) fail("write");
}

void OutputFile::commit() {
    if (std::fflush(stream_) != 0 || fsync(fileno(stream_)) != 0) fail("write");
    std::FILE* stream = stream_;
    stream_ = nullptr;
    if (std::fclose(stream) != 0) fail("write");
    if (std::rename(beside_.c_str(), path_.c_str()) != 0) fail("replace");
    pending = 0;
    beside_.clear();
    // The new name lasts once the folder is on disk. Some file systems cannot sync a folder: no harm.
    const std::string folder = fs::path(path_).parent_path().string();
    const int fd = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

void OutputFile::fail(const char* what) const {
    throw fileFailure(what, path_, errno);
}

}  // namespace katlist
