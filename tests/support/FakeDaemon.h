// A daemon that answers as a test wants.
#pragma once

#include <cerrno>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

#include "KatdUtil/Utils.h"
#include "support/Client.h"
#include "support/TempDir.h"

namespace katd_test {

using Texts = std::vector<std::string>;

// A reply as it goes over the wire.
inline std::string reply(char matched, const std::string& categories) {
    return number(0) + number(static_cast<std::uint32_t>(categories.size())) + std::string{matched, 0, 0, 0} +
           categories;
}

// Speaks the daemon's side of the protocol on a socket of its own, with replies that the test chooses.
class FakeDaemon {
public:
    // What to send for a message, which is the bytes after its length; empty: nothing. A "!" at the end of
    // the message closes the connection after that.
    using Handler = std::function<std::string(const std::string& message)>;

    FakeDaemon(const std::string& path, Handler handler)
        : path_(path),
          handler_(std::move(handler)),
          socket_(KATD_SPACE::Utils::createLocalTcpService(path.c_str(), 8)) {
        std::signal(SIGPIPE, SIG_IGN);
        thread_ = std::thread([this] { serve(); });
    }
    // Ends as a killed daemon does: connections are closed, the socket's file stays.
    ~FakeDaemon() {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            isOver_ = true;
            shutdown(socket_, SHUT_RDWR);  // ends accept()
            if (connection_ >= 0) shutdown(connection_, SHUT_RDWR);
        }
        thread_.join();
        close(socket_);
    }
    // Each message behind the number of its connection: "1 url0a.example".
    Texts received() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return received_;
    }

private:
    void serve() {
        for (int number = 1;; ++number) {
            int fd = -1;
            while ((fd = accept(socket_, nullptr, nullptr)) < 0 && errno == EINTR) {
            }
            if (fd < 0) return;
            bool goesOn = setConnection(fd);
            while (goesOn)
                goesOn = serveOne(fd, number);
            setConnection(-1);
            close(fd);
            writeFile(path_ + ".closed" + std::to_string(number), "");  // for who waits for it
        }
    }
    bool setConnection(int fd) {
        const std::lock_guard<std::mutex> guard(mutex_);
        connection_ = fd;
        return !isOver_;
    }
    bool serveOne(int fd, int connection) {
        std::uint32_t length = 0;
        if (KATD_SPACE::Utils::readn(fd, &length, sizeof length) != sizeof length) return false;
        std::string message(length, '\0');
        if (KATD_SPACE::Utils::readn(fd, &message[0], length) != length) return false;
        const std::string reply = handler_(message);
        const std::lock_guard<std::mutex> guard(mutex_);
        received_.push_back(std::to_string(connection) + " " + message);
        const bool isSent = reply.empty() || KATD_SPACE::Utils::writen(
                                                 fd, reply.data(), static_cast<unsigned>(reply.size())) != 0;
        return isSent && message.back() != '!';
    }

    const std::string path_;
    const Handler handler_;
    const int socket_;
    mutable std::mutex mutex_;
    // Guarded by mutex_
    Texts received_;
    int connection_ = -1;
    bool isOver_ = false;
    std::thread thread_;
};

}  // namespace katd_test
