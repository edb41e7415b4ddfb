#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "Rules.h"

namespace asapsdk {

bool RulesFile::State::operator==(const State& other) const {
    return path == other.path && error == other.error && device == other.device && inode == other.inode &&
           size == other.size && seconds == other.seconds && nanoseconds == other.nanoseconds;
}

RulesFile::State RulesFile::stateOf(const std::string& path, int error, const struct stat& file) {
    State state;
    state.path = path;
    state.error = error;
    if (error == 0) {
        state.device = file.st_dev;
        state.inode = file.st_ino;
        state.size = file.st_size;
        state.seconds = file.st_mtim.tv_sec;
        state.nanoseconds = file.st_mtim.tv_nsec;
    }
    return state;
}

RulesFile::State RulesFile::readFile(const std::string& path) {
    rules_ = Rules();
    struct stat file {};
    // Non-blocking: a FIFO in place of the file would block every call.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return stateOf(path, errno, file);
    const struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } closer{fd};
    int error = fstat(fd, &file) == 0 ? 0 : errno;
    if (error == 0 && !S_ISREG(file.st_mode)) error = EINVAL;
    std::stringstream text;
    // Must fail when memory runs out: truncated rules would stay in force until the file changes.
    text.exceptions(std::ios::badbit);
    char piece[4096];
    while (error == 0) {
        const ssize_t size = read(fd, piece, sizeof piece);
        if (size == 0) break;
        if (size > 0) {
            text.write(piece, size);
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    if (error == 0) rules_.read(text, path);
    return stateOf(path, error, file);
}

void RulesFile::refresh() {
    const char* const path = std::getenv("ASAPSDK_RULES");
    if (path == nullptr) {
        if (state_ == State()) return;
        rules_ = Rules();
        state_ = State();
        return;
    }
    struct stat file {};
    const int error = stat(path, &file) == 0 ? 0 : errno;
    if (stateOf(path, error, file) == state_) return;
    const State before = state_;
    state_ = readFile(path);
    if (state_.error != 0 && !(state_ == before)) {
        std::fprintf(stderr, "asapsdk: no rules, since %s cannot be read: %s\n", path,
                     std::strerror(state_.error));
    }
}

std::optional<Outcome> RulesFile::takeForUrl(const std::string& url) {
    const std::lock_guard<std::mutex> guard(mutex_);
    refresh();
    return rules_.takeForUrl(url);
}

std::optional<Outcome> RulesFile::takeForFunction(const std::string& function) {
    const std::lock_guard<std::mutex> guard(mutex_);
    refresh();
    return rules_.takeForFunction(function);
}

}  // namespace asapsdk
