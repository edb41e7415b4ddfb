#include "LineReader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace katc {

namespace {

constexpr std::size_t maxWord = 64;  // kept of a line that is cut: a channel-ID is shorter

}  // namespace

bool LineReader::take(std::size_t limit, std::string* lines) {
    std::size_t size = 0;
    while ((size = wholeLines(limit)) == 0 && !isAtEnd_) {
        makeSpace();
        receive();
    }
    if (size == 0 && (begin_ == end_ || error_ != 0)) return false;
    const bool lacksFeed = size == 0;
    if (lacksFeed) size = end_ - begin_;
    lines->assign(&buffer_[begin_], size);
    if (lacksFeed) *lines += '\n';
    begin_ += size;
    searched_ = begin_;
    return true;
}

// The size of the first lines in the buffer, at most `limit` of them; 0 if there is no whole line.
std::size_t LineReader::wholeLines(std::size_t limit) {
    std::size_t lineEnd = begin_;
    for (std::size_t from = searched_; limit > 0 && from < end_; --limit) {
        const void* const feed = std::memchr(&buffer_[from], '\n', end_ - from);
        if (feed == nullptr) break;
        from = lineEnd = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.data()) + 1;
    }
    if (lineEnd == begin_) searched_ = end_;
    return lineEnd - begin_;
}

void LineReader::makeSpace() {
    if (begin_ > 0) {
        std::memmove(buffer_.data(), &buffer_[begin_], end_ - begin_);
        end_ -= begin_;
        searched_ -= begin_;
        begin_ = 0;
    }
    if (end_ < buffer_.size()) return;
    if (buffer_.size() < maxLine_) {
        buffer_.resize(buffer_.size() * 2);
        return;
    }
    char* const front = buffer_.data();
    if (!keepsFirstWord_) *front = ' ';
    const char* const wordEnd = keepsFirstWord_ ? std::find(front, front + maxWord, ' ') : front + 1;
    end_ = searched_ = static_cast<std::size_t>(wordEnd - front);
    isDropping_ = true;
}

void LineReader::receive() {
    const ssize_t size = read(fd_, &buffer_[end_], buffer_.size() - end_);
    if (size > 0) {
        if (isDropping_) {
            dropRestOfLine(static_cast<std::size_t>(size));
        } else {
            end_ += static_cast<std::size_t>(size);
        }
    } else if (size == 0) {
        isAtEnd_ = true;
    } else if (errno == EAGAIN) {
        // Another process that shares the pipe may have made it non-blocking.
        pollfd events{fd_, POLLIN, 0};
        poll(&events, 1, -1);
    } else if (errno != EINTR) {
        error_ = errno;
        isAtEnd_ = true;
    }
}

void LineReader::dropRestOfLine(std::size_t received) {
    char* const fresh = &buffer_[end_];
    const void* const feed = std::memchr(fresh, '\n', received);
    if (feed == nullptr) return;
    const auto dropped = static_cast<std::size_t>(static_cast<const char*>(feed) - fresh);
    std::memmove(fresh, feed, received - dropped);
    end_ += received - dropped;
    isDropping_ = false;
}

}  // namespace katc
