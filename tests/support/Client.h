// A client that sends any bytes, valid requests or not.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "UrlServer/Protocol.h"

namespace katd_test {

struct Reply {
    KATD_SPACE::ReplyHeader header;
    std::vector<unsigned> categories;
};

inline std::string number(std::uint32_t value) {
    return std::string(reinterpret_cast<char*>(&value), sizeof(value));
}

// The bytes of a request.
inline std::string request(const std::string& message) {
    return number(static_cast<std::uint32_t>(message.size())) + message;
}

class Client {
public:
    explicit Client(int fd) : fd_(fd) {}
    explicit Client(const std::string& socketPath) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath.copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) hangUp();
    }
    ~Client() { hangUp(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connected() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    void hangUp() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }
    bool send(const std::string& bytes) {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // The next reply; nothing if the connection is closed first.
    std::optional<Reply> receive() {
        Reply reply{};
        if (!receiveAll(&reply.header, sizeof(reply.header))) return std::nullopt;
        std::vector<unsigned char> bytes(reply.header.length);
        if (!bytes.empty() && !receiveAll(bytes.data(), bytes.size())) return std::nullopt;
        reply.categories.assign(bytes.begin(), bytes.end());
        return reply;
    }
    std::optional<Reply> exchange(const std::string& message) {
        if (!send(request(message))) return std::nullopt;
        return receive();
    }
    std::optional<Reply> ask(const std::string& url) { return exchange("url0" + url); }
    std::optional<Reply> askWithRetry(const std::string& url) { return exchange("url1" + url); }
    // Whether a control request gets its empty reply.
    bool control(const std::string& body) {
        const std::optional<Reply> reply = exchange("ctl:" + body);
        return reply && reply->header.length == 0 && reply->header.matched == 0;
    }

private:
    bool receiveAll(void* buffer, std::size_t size) {
        return recv(fd_, buffer, size, MSG_WAITALL) == static_cast<ssize_t>(size);
    }

    int fd_;
};

}  // namespace katd_test
