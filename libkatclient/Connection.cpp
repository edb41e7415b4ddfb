#include "Connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace katclient_internal {

namespace {

constexpr std::int64_t firstPauseMs = 5;  // between attempts to connect; doubled up to longestPauseMs
constexpr std::int64_t longestPauseMs = 100;

int pollTime(std::int64_t limitMs) {
    if (limitMs < 0) return -1;
    return static_cast<int>(std::min<std::int64_t>(limitMs, std::numeric_limits<int>::max()));
}

// The send timeout also limits a connect(2) that waits for a place in the daemon's queue: see socket(7).
void limitConnect(int fd, std::int64_t limitMs) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(limitMs / 1000);
    limit.tv_usec = static_cast<suseconds_t>(limitMs % 1000 * 1000);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace

std::int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void Connection::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

int Connection::open(unsigned connectMs, unsigned answerMs) {
    close();
    const std::int64_t start = nowMs();
    const std::int64_t queueMs = answerMs == 0 ? -1 : std::max(connectMs, answerMs);
    std::int64_t pause = firstPauseMs;
    for (;;) {
        const std::int64_t passed = nowMs() - start;
        const int error = attempt(queueMs < 0 ? -1 : std::max<std::int64_t>(queueMs - passed, 1));
        if (error == 0) return 0;
        const std::int64_t left = connectMs - (nowMs() - start);
        const bool hadDescriptor = isOpen();  // else no attempt can succeed
        close();
        if (error == EINTR) continue;
        if (!hadDescriptor || left <= 0) return error;
        poll(nullptr, 0, pollTime(std::min(pause, left)));
        pause = std::min(pause * 2, longestPauseMs);
    }
}

// Leaves the descriptor open if connect(2) fails.
int Connection::attempt(std::int64_t limitMs) {
    close();
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) return errno;
    if (limitMs >= 0) limitConnect(fd_, limitMs);
    return connect(fd_, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) == 0 ? 0 : errno;
}

Connection::Io Connection::send(const char* first, std::size_t firstSize, const char* second,
                                std::size_t secondSize, std::size_t* sent) {
    // sendmsg(2) does not write to what the pieces point to.
    iovec pieces[2] = {{const_cast<char*>(first), firstSize}, {const_cast<char*>(second), secondSize}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = secondSize == 0 ? 1 : 2;
    for (;;) {
        const ssize_t result = sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (result >= 0) {
            *sent = static_cast<std::size_t>(result);
            return Io::DONE;
        }
        if (errno == EINTR) continue;
        return errno == EAGAIN || errno == EWOULDBLOCK ? Io::AGAIN : Io::LOST;
    }
}

Connection::Io Connection::receive(char* to, std::size_t size, bool wait, std::size_t* received) {
    for (;;) {
        const ssize_t result = recv(fd_, to, size, wait ? 0 : MSG_DONTWAIT);
        if (result > 0) {
            *received = static_cast<std::size_t>(result);
            return Io::DONE;
        }
        if (result == 0) return Io::ENDED;
        if (errno == EINTR) continue;
        return errno == EAGAIN || errno == EWOULDBLOCK ? Io::AGAIN : Io::LOST;
    }
}

bool Connection::wait(bool orSent, std::int64_t limitMs) {
    pollfd events{fd_, static_cast<short>(orSent ? POLLIN | POLLOUT : POLLIN), 0};
    return poll(&events, 1, pollTime(limitMs)) > 0;
}

}  // namespace katclient_internal
