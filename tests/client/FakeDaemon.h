// Speaks the daemon's side of the protocol on a socket of its own, with replies that the test chooses.
#ifndef KATD_TESTS_CLIENT_FAKEDAEMON_H
#define KATD_TESTS_CLIENT_FAKEDAEMON_H

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KatdUtil/Utils.h"

namespace katd_test {

// The bytes of a 32-bit number as they go over the socket.
inline std::string wire(std::uint32_t number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

// A reply header of twelve bytes and the categories.
inline std::string reply(char matched, const std::string& categories) {
    return wire(0) + wire(static_cast<std::uint32_t>(categories.size())) + std::string{matched, 0, 0, 0} +
           categories;
}

class FakeDaemon {
public:
    // What to send for a message (the bytes behind its length), and whether to keep the connection then.
    struct Action {
        std::string bytes;
        bool keep = true;
    };
    using Handler = std::function<Action(const std::string& message)>;

    struct Received {
        unsigned connection;  // 1 for the first
        std::string message;

        friend void PrintTo(const Received& received, std::ostream* out) {
            *out << received.connection << ": " << received.message;
        }
        bool operator==(const Received& other) const {
            return connection == other.connection && message == other.message;
        }
    };

    FakeDaemon(const std::string& path, Handler handler)
        : handler_(std::move(handler)), socket_(KATD_SPACE::Utils::createLocalTcpService(path.c_str(), 8)) {
        EXPECT_GE(socket_, 0);
        std::signal(SIGPIPE, SIG_IGN);
        thread_ = std::thread([this] { serve(); });
    }
    ~FakeDaemon() {
        shutdown(socket_, SHUT_RDWR);  // ends accept()
        thread_.join();
        close(socket_);
    }
    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;

    std::vector<Received> received() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return received_;
    }

    // The number of connections that it has closed.
    unsigned closed() const { return closed_; }

private:
    void serve() {
        for (unsigned connection = 1;; ++connection) {
            const int fd = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) return;
            while (serveOne(fd, connection)) {
            }
            close(fd);
            ++closed_;
        }
    }

    bool serveOne(int fd, unsigned connection) {
        std::uint32_t length = 0;
        if (KATD_SPACE::Utils::readn(fd, &length, sizeof length) != sizeof length) return false;
        std::string message(length, '\0');
        if (KATD_SPACE::Utils::readn(fd, &message[0], length) != length) return false;
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            received_.push_back({connection, message});
        }
        const Action action = handler_(message);
        KATD_SPACE::Utils::writen(fd, action.bytes.data(), static_cast<unsigned>(action.bytes.size()));
        return action.keep;
    }

    const Handler handler_;
    const int socket_;
    mutable std::mutex mutex_;
    std::vector<Received> received_;  // guarded by mutex_
    std::atomic<unsigned> closed_{0};
    std::thread thread_;
};

}  // namespace katd_test

#endif
