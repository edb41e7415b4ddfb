#include "Connection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace engine {

namespace {

// The replies to a batch are smaller if the other side is a store of katd.
constexpr std::size_t replyLimit = std::size_t{64} << 20U;

std::string withError(const char* what, int error) {
    return std::string(what) + ": " + std::strerror(error);
}

void append(const Connection::Command& command, std::string* text) {
    std::vector<const char*> words;
    std::vector<std::size_t> sizes;
    for (const std::string& word : command) {
        words.push_back(word.data());
        sizes.push_back(word.size());
    }
    char* formatted = nullptr;
    const int size =
        redisFormatCommandArgv(&formatted, static_cast<int>(words.size()), words.data(), sizes.data());
    if (size < 0) throw std::bad_alloc();
    const std::unique_ptr<char, void (*)(char*)> owner(formatted, redisFreeCommand);
    text->append(formatted, static_cast<std::size_t>(size));
}

}  // namespace

void Connection::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    timedOut_ = false;
    reader_.reset();
}

bool Connection::fail(const std::string& phrase) {
    close();
    failure_ = phrase;
    return false;
}

bool Connection::wait(short events, Time end) {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            fail("no reply");
            timedOut_ = true;
            return false;
        }
        pollfd descriptors[] = {{fd_, events, 0}, {stop_, POLLIN, 0}};
        const int ready = poll(descriptors, 2, static_cast<int>(left.count()));
        if (ready < 0 && errno != EINTR) return fail(withError("poll", errno));
        if (ready > 0 && descriptors[1].revents != 0) return fail("stopped");
        if (ready > 0) return true;
    }
}

bool Connection::openTo(int family, const void* address, unsigned size, Time end) {
    close();
    fd_ = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0) return fail(withError("no socket", errno));
    int error = connect(fd_, static_cast<const sockaddr*>(address), size) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        if (!wait(POLLOUT, end)) return false;
        socklen_t errorSize = sizeof error;
        getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &errorSize);
    }
    if (error != 0) return fail(withError("cannot connect", error));
    if (family != AF_UNIX) {
        const auto set = [this](int level, int option, int value) {
            setsockopt(fd_, level, option, &value, sizeof value);
        };
        set(IPPROTO_TCP, TCP_NODELAY, 1);
        // A firewall does not forget the connection while it is idle; if it does, the kernel finds it out.
        set(SOL_SOCKET, SO_KEEPALIVE, 1);
        set(IPPROTO_TCP, TCP_KEEPIDLE, 20);
        set(IPPROTO_TCP, TCP_KEEPINTVL, 5);
        set(IPPROTO_TCP, TCP_KEEPCNT, 3);
    }
    reader_.reset(redisReaderCreate());
    return reader_ ? true : fail("out of memory");
}

bool Connection::open(const catalog::SharedAddress::Host& host, std::chrono::milliseconds limit) {
    host_ = host.text();
    if (host.isSocket()) {
        sockaddr_un address{};
        if (host.name.size() >= sizeof address.sun_path) return fail("the path is too long for a socket");
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, host.name.data(), host.name.size());
        return openTo(AF_UNIX, &address, sizeof address, std::chrono::steady_clock::now() + limit);
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.name.c_str(), std::to_string(host.port).c_str(), &hints, &found);
    if (error != 0) return fail(std::string("cannot resolve the name: ") + gai_strerror(error));
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, freeaddrinfo);
    for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
        const auto end = std::chrono::steady_clock::now() + limit;
        if (openTo(address->ai_family, address->ai_addr, address->ai_addrlen, end)) return true;
    }
    return false;
}

bool Connection::receive(Time end) {
    char bytes[16384];
    for (;;) {
        const ssize_t size = recv(fd_, bytes, sizeof bytes, 0);
        if (size > 0) {
            redisReaderFeed(reader_.get(), bytes, static_cast<std::size_t>(size));
            received_ += static_cast<std::size_t>(size);
            return received_ <= replyLimit ? true : fail("a reply is too large");
        }
        if (size == 0) return fail("the connection was closed");
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return fail(withError("the connection was lost", errno));
        if (!wait(POLLIN, end)) return false;
    }
}

bool Connection::exchange(const std::vector<Command>& commands, std::chrono::milliseconds limit,
                          std::vector<Reply>* replies) {
    const auto end = std::chrono::steady_clock::now() + limit;
    received_ = 0;
    std::string text;
    for (const Command& command : commands)
        append(command, &text);
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t size = send(fd_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (size >= 0) {
            sent += static_cast<std::size_t>(size);
        } else if (errno == EAGAIN) {
            if (!wait(POLLOUT, end)) return false;
        } else if (errno != EINTR) {
            return fail(withError("the connection was lost", errno));
        }
    }
    replies->clear();
    while (replies->size() < commands.size()) {
        void* reply = nullptr;
        if (redisReaderGetReply(reader_.get(), &reply) != REDIS_OK) return fail("a reply is not redis'");
        if (reply != nullptr) {
            replies->emplace_back(static_cast<redisReply*>(reply));
        } else if (!receive(end)) {
            return false;
        }
    }
    return true;
}

}  // namespace engine
