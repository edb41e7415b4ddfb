#include "Lines.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace katc {

const std::vector<std::string_view>& Lines::next(std::size_t limit) {
    lines_.clear();
    while (lines_.empty()) {
        while (lines_.size() < limit && take()) {
        }
        if (!lines_.empty() || !read()) break;
    }
    return lines_;
}

// The next line of what was read; what has no line feed is one at the end of the input.
bool Lines::take() {
    const char* const from = bytes_.data() + start_;
    const std::size_t held = end_ - start_;
    if (held == 0) return false;
    const auto* const feed = static_cast<const char*>(std::memchr(from + scanned_, '\n', held - scanned_));
    scanned_ = held;
    if (feed == nullptr && !isOver_) return false;
    const std::size_t length = feed != nullptr ? static_cast<std::size_t>(feed - from) : held;
    // A text file of another system: the daemon would leave the carriage return out, the answer would not.
    const bool hasReturn = length > 0 && from[length - 1] == '\r';
    lines_.emplace_back(from, hasReturn ? length - 1 : length);
    start_ += feed != nullptr ? length + 1 : length;
    scanned_ = 0;
    return true;
}

// False at the end: nothing is left to be taken then.
bool Lines::read() {
    if (isOver_) return false;
    if (start_ != 0) {
        std::memmove(bytes_.data(), bytes_.data() + start_, end_ - start_);
        end_ -= start_;
        start_ = 0;
    }
    if (bytes_.size() - end_ < piece) bytes_.resize(bytes_.size() * 2 + piece);
    ssize_t size = 0;
    do {
        size = ::read(STDIN_FILENO, bytes_.data() + end_, bytes_.size() - end_);
    } while (size < 0 && errno == EINTR);
    if (size < 0) error = errno;
    isOver_ = size <= 0;
    if (size > 0) end_ += static_cast<std::size_t>(size);
    return true;
}

}  // namespace katc
