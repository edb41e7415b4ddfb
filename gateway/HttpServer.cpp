#include "HttpServer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

namespace gateway {

namespace {

using Clock = std::chrono::steady_clock;

// Waits until the socket is ready for `events`; false if the deadline passes first.
bool waitFor(int socket, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd descriptor{socket, events, 0};
        const int ready = poll(&descriptor, 1, static_cast<int>(std::max<long long>(left.count() + 1, 0)));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

// The stream that httplib reads and writes. Buffered in both directions, because httplib reads single bytes
// and writes headers and body separately. Each request has a deadline as a whole, so trickled bytes do not
// extend it.
class BufferedStream : public httplib::Stream {
public:
    BufferedStream(int socket, const HttpLimits& limits) : socket_(socket), limits_(limits) {}

    // Waits for the first byte of a request; false if the client closes or the idle time expires.
    bool awaitRequest(Clock::time_point deadline) {
        if (position_ == size_ && !fill(deadline)) return false;
        deadline_ = Clock::now() + limits_.request;
        headLeft_ = limits_.headBytes;
        return true;
    }
    // Call after the headers have been read: the body, which httplib limits, follows.
    void endHead() { headLeft_ = ~std::size_t{0}; }
    bool flush() {
        // httplib sends a length with this status, which HTTP forbids (RFC 9110, 8.6).
        constexpr char noContent[] = "HTTP/1.1 204";
        constexpr char length[] = "Content-Length: 0\r\n";
        if (output_.compare(0, sizeof noContent - 1, noContent) == 0) {
            if (const std::size_t found = output_.find(length); found != output_.npos)
                output_.erase(found, sizeof length - 1);
        }
        const Clock::time_point deadline = Clock::now() + limits_.reply;
        std::size_t sent = 0;
        while (sent < output_.size()) {
            const ssize_t size =
                send(socket_, output_.data() + sent, output_.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (size > 0) {
                sent += static_cast<std::size_t>(size);
            } else if (errno == EAGAIN) {
                if (!waitFor(socket_, POLLOUT, deadline)) return false;
            } else if (errno != EINTR) {
                return false;
            }
        }
        output_.clear();
        return true;
    }

    // The request was incomplete, late or too large, so the next bytes are not the start of a request.
    bool isBroken() const { return isBroken_; }

    bool is_readable() const override { return position_ < size_ || waitFor(socket_, POLLIN, deadline_); }
    bool is_writable() const override { return true; }
    ssize_t read(char* to, size_t size) override {
        if (position_ == size_ && !fill(deadline_)) {
            isBroken_ = true;
            return atEnd_ ? 0 : -1;
        }
        size = std::min({size, size_ - position_, headLeft_});
        if (size == 0) {
            isBroken_ = true;
            return -1;
        }
        std::copy_n(buffer_ + position_, size, to);
        position_ += size;
        headLeft_ -= size;
        return static_cast<ssize_t>(size);
    }
    ssize_t write(const char* from, size_t size) override {
        output_.append(from, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip.clear();
        port = 0;
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        ip.clear();
        port = 0;
    }
    socket_t socket() const override { return socket_; }

private:
    bool fill(Clock::time_point deadline) {
        for (;;) {
            const ssize_t size = recv(socket_, buffer_, sizeof buffer_, MSG_DONTWAIT);
            if (size > 0) {
                position_ = 0;
                size_ = static_cast<std::size_t>(size);
                return true;
            }
            atEnd_ = size == 0;
            if (atEnd_ || (errno != EAGAIN && errno != EINTR)) return false;
            if (errno == EAGAIN && !waitFor(socket_, POLLIN, deadline)) return false;
        }
    }

    const int socket_;
    const HttpLimits& limits_;
    Clock::time_point deadline_{};
    char buffer_[8192];
    std::size_t position_ = 0;  // offset in buffer_ of the first unread byte
    std::size_t size_ = 0;
    std::size_t headLeft_ = 0;
    bool atEnd_ = false;
    bool isBroken_ = false;
    std::string output_;
};

constexpr char json[] = "application/json";

}  // namespace

// httplib's parser for requests. Its routes are regular expressions, which are slow and recurse once per
// byte. So requests are handled before routing, except POST: httplib reads the body only when it routes.
class HttpServer::Protocol : public httplib::Server {
public:
    Protocol(Handler handler, const HttpLimits& limits) : handler_(std::move(handler)) {
        set_payload_max_length(limits.bodyBytes);
        // serve() decides about the Connection header.
        set_keep_alive_timeout(std::chrono::duration_cast<std::chrono::seconds>(limits.idle).count());
        set_keep_alive_max_count(1000000);
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            current_->endHead();
            const std::size_t lengths = request.get_header_value_count("Content-Length");
            const std::size_t encodings = request.get_header_value_count("Transfer-Encoding");
            // Request smuggling: a front server may see a different length in such a request.
            if (lengths + encodings > 1 || (encodings > 0 && request.version != "HTTP/1.1")) {
                refuse(response, 400, "the length of the request is given twice");
                return HandlerResponse::Handled;
            }
            if (request.method == "POST") return HandlerResponse::Unhandled;
            if (encodings > 0 || (lengths > 0 && request.get_header_value("Content-Length") != "0"))
                mustClose_ = true;
            handler_(request, response);
            return HandlerResponse::Handled;
        });
        Post(".*", [this](const httplib::Request& request, httplib::Response& response) {
            handler_(request, response);
        });
        set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
            refuse(response, 500, "not enough memory");
        });
        set_error_handler([](const httplib::Request&, httplib::Response& response) {
            // httplib calls this for the handler's refusals too. Those have a body and keep the connection.
            if (!response.body.empty()) return;
            mustClose_ = true;
            refuse(response, response.status, reasonOf(response.status));
        });
    }

    // Serves a connection until it ends.
    void serve(int socket, const HttpLimits& limits, const std::atomic<bool>& isStopping) {
        BufferedStream stream(socket, limits);
        current_ = &stream;
        while (!isStopping && stream.awaitRequest(Clock::now() + limits.idle)) {
            bool isClosed = false;
            mustClose_ = false;
            const bool served = process_request(stream, isStopping, isClosed, [](httplib::Request&) {});
            if (!stream.flush() || !served || isClosed || mustClose_ || stream.isBroken()) break;
        }
    }

private:
    // The reply to a request that httplib itself refuses.
    static const char* reasonOf(int status) {
        switch (status) {
            case 413:
                return "the body is too long";
            case 414:
                return "the address is too long: POST long URLs to /v1/categories";
            case 416:
                return "the range is not available";
            default:
                return "this is not an HTTP request that can be answered";
        }
    }
    static void refuse(httplib::Response& response, int status, const std::string& reason) {
        response.status = status;
        response.set_content("{\"error\":\"" + reason + "\"}\n", json);
    }

    const Handler handler_;
    static thread_local BufferedStream* current_;
    static thread_local bool mustClose_;  // close the connection after this reply
};

thread_local BufferedStream* HttpServer::Protocol::current_ = nullptr;
thread_local bool HttpServer::Protocol::mustClose_ = false;

// The sockets of the connections, each served by a detached thread.
class HttpServer::Connections {
public:
    explicit Connections(const HttpLimits& limits) : limits_(limits) {}

    bool isFull() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return sockets_.size() >= limits_.connections;
    }
    void waitForOne() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, std::chrono::milliseconds(200),
                          [this] { return sockets_.size() < limits_.connections; });
    }
    void start(int socket, Protocol* protocol) {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            sockets_.insert(socket);
        }
        try {
            std::thread([this, socket, protocol] {
                try {
                    protocol->serve(socket, limits_, isStopping_);
                } catch (const std::exception&) {
                    // Out of memory: only this connection ends.
                }
                end(socket);
            }).detach();
        } catch (const std::system_error&) {
            end(socket);
        }
    }
    // Closes idle connections and waits until the others have been sent their replies.
    void stop() {
        std::unique_lock<std::mutex> lock(mutex_);
        isStopping_ = true;
        for (const int socket : sockets_)
            shutdown(socket, SHUT_RD);
        changed_.wait_for(lock, limits_.request + limits_.reply, [this] { return sockets_.empty(); });
    }
    // Serves the socket in the calling thread, without counting it.
    void serveHere(int socket, Protocol* protocol) const { protocol->serve(socket, limits_, isStopping_); }

private:
    void end(int socket) {
        const std::lock_guard<std::mutex> guard(mutex_);
        sockets_.erase(socket);
        close(socket);
        changed_.notify_all();
    }

    const HttpLimits& limits_;
    std::atomic<bool> isStopping_{false};
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::set<int>
        sockets_;  // guarded by mutex_; a socket is closed under it too, so that stop() meets no other's
};

HttpServer::HttpServer(const HttpLimits& limits, std::vector<Listener> listeners,
                       std::vector<Handler> handlers)
    : limits_(limits),
      listeners_(std::move(listeners)),
      connections_(std::make_unique<Connections>(limits_)) {
    for (Handler& handler : handlers)
        protocols_.push_back(std::make_unique<Protocol>(std::move(handler), limits_));
}

HttpServer::~HttpServer() = default;

void HttpServer::serve(int socket, std::size_t listener) {
    connections_->serveHere(socket, protocols_[listener].get());
}

void HttpServer::run(int stopDescriptor) {
    std::vector<pollfd> descriptors;
    for (const Listener& listener : listeners_)
        descriptors.push_back({listener.descriptor(), POLLIN, 0});
    descriptors.push_back({stopDescriptor, POLLIN, 0});
    for (;;) {
        if (connections_->isFull()) {
            connections_->waitForOne();
            // No capacity for new clients: only check for the end.
            if (poll(&descriptors.back(), 1, 0) > 0) break;
            continue;
        }
        if (poll(descriptors.data(), descriptors.size(), -1) < 0) continue;
        if (descriptors.back().revents != 0) break;
        for (std::size_t i = 0; i < listeners_.size(); ++i) {
            if (descriptors[i].revents == 0) continue;
            const int socket = accept4(descriptors[i].fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (socket >= 0) {
                connections_->start(socket, protocols_[i].get());
            } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // The client stays in the queue until a connection ends and frees a descriptor.
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        }
    }
    listeners_.clear();
    connections_->stop();
}

}  // namespace gateway
