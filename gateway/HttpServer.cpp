#include "HttpServer.h"

#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

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

// httplib refuses longer lines of a head.
constexpr std::size_t longLine = 8000;

// The stream that httplib reads and writes. Buffered in both directions, because httplib reads single bytes
// and writes headers and body separately. Each request has a deadline as a whole, so trickled bytes do not
// extend it.
//
// Long lines of the head are kept from httplib, and put into the request when it has parsed the rest. The
// values of headers are put in again too, because httplib decodes their percent escapes.
class BufferedStream : public httplib::Stream {
public:
    BufferedStream(int socket, const HttpLimits& limits) : socket_(socket), limits_(limits) {}

    // Waits for the first byte of a request; false if the client closes or the idle time expires.
    bool awaitRequest(Clock::time_point deadline) {
        if (position_ == size_ && !fill(deadline)) return false;
        deadline_ = Clock::now() + limits_.request;
        headLeft_ = limits_.headBytes;
        refusal_ = 0;
        lineSent_ = 0;
        for (std::string* text : {&line_, &target_, &headers_})
            text->clear();
        isInHead_ = isFirstLine_ = true;
        isAltered_ = false;
        return true;
    }
    // Makes the request, which httplib has parsed, what the client sent.
    void restore(httplib::Request* request) const {
        if (!target_.empty()) {
            const std::size_t query = std::min(target_.find('?'), target_.size());
            request->target = target_;
            request->path = httplib::detail::decode_url(target_.substr(0, query), false);
            request->params.clear();
            if (query < target_.size())
                httplib::detail::parse_query_text(target_.substr(query + 1), request->params);
        }
        if (!isAltered_) return;
        request->headers.clear();
        for (std::size_t begin = 0, end; begin < headers_.size(); begin = end + 1) {
            end = headers_.find('\n', begin);
            const std::string_view line(headers_.data() + begin, end - begin);
            const std::size_t colon = line.find(':');
            const std::size_t value = line.find_first_not_of(" \t\r", colon + 1);
            if (colon == line.npos || line.back() != '\r') continue;
            const std::size_t last = line.find_last_not_of(" \t\r");
            request->headers.emplace(line.substr(0, colon),
                                     value == line.npos ? "" : line.substr(value, last + 1 - value));
        }
    }
    // The status of a head that is too long: 414 or 431; else 0.
    int refusal() const { return refusal_; }
    // Sends this instead of what httplib wrote, and reads what the client still sends: it might otherwise be
    // told of a lost connection before it reads the reply.
    void refuse(const std::string& reply) {
        output_ = reply;
        if (!flush() || shutdown(socket_, SHUT_WR) != 0) return;
        for (std::size_t left = mostDrained; left >= sizeof buffer_ && fill(deadline_);)
            left -= sizeof buffer_;
    }
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
        const char* from = line_.data() + lineSent_;
        std::size_t ready = line_.size() - lineSent_;
        if (ready == 0 && isInHead_) {
            if (!readLine()) return broken();
            from = line_.data();
            ready = line_.size();
        }
        const bool isLine = ready > 0;
        if (!isLine) {
            if (position_ == size_ && !fill(deadline_)) return broken();
            from = buffer_ + position_;
            ready = size_ - position_;
        }
        size = std::min(size, ready);
        std::copy_n(from, size, to);
        (isLine ? lineSent_ : position_) += size;
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
    static constexpr std::size_t mostDrained = 1 << 20;

    ssize_t broken() {
        isBroken_ = true;
        return atEnd_ && refusal_ == 0 ? 0 : -1;
    }
    // Reads the next line of the head that httplib gets into line_.
    bool readLine() {
        lineSent_ = 0;
        do {
            line_.clear();
            const bool isFirst = std::exchange(isFirstLine_, false);
            if (!takeLine()) {
                if (headLeft_ == 0) refusal_ = isFirst ? 414 : 431;
                return false;
            }
            if (isFirst) {
                shortenRequestLine();
                continue;
            }
            isInHead_ = line_ != "\r\n";
            const bool isLong = line_.size() > longLine && !isFraming();
            isAltered_ = isAltered_ || isLong || line_.find('%') != line_.npos;
            if (isInHead_) headers_ += line_;
            if (isLong) line_.clear();
        } while (line_.empty());
        return true;
    }
    bool takeLine() {
        for (;;) {
            if (headLeft_ == 0 || (position_ == size_ && !fill(deadline_))) return false;
            const std::size_t most = std::min(size_ - position_, headLeft_);
            const auto* const end = static_cast<const char*>(std::memchr(buffer_ + position_, '\n', most));
            const std::size_t taken =
                end == nullptr ? most : static_cast<std::size_t>(end - buffer_) + 1 - position_;
            line_.append(buffer_ + position_, taken);
            position_ += taken;
            headLeft_ -= taken;
            if (end != nullptr) return true;
        }
    }
    void shortenRequestLine() {
        const std::size_t begin = line_.find(' ') + 1;
        const std::size_t end = line_.rfind(' ');
        if (line_.size() <= longLine || begin >= end || end == line_.npos || line_[begin] != '/') return;
        target_ = line_.substr(begin, end - begin);
        if (target_.find(' ') == target_.npos)
            line_.replace(begin, end - begin, "/");
        else
            target_.clear();
    }
    // httplib needs these to find the end of the request, and refuses them if they are long.
    bool isFraming() const {
        const std::string name = line_.substr(0, line_.find(':'));
        return strcasecmp(name.c_str(), "Content-Length") == 0 ||
               strcasecmp(name.c_str(), "Transfer-Encoding") == 0;
    }
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
    std::string line_;  // of the head, for httplib
    std::size_t lineSent_ = 0;
    std::string target_;   // of a long request line; else empty
    std::string headers_;  // their lines as they were sent
    bool isInHead_ = false;
    bool isFirstLine_ = false;
    bool isAltered_ = false;  // httplib does not get the headers as they were sent
    int refusal_ = 0;
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
            const std::size_t lengths = request.get_header_value_count("Content-Length");
            const std::size_t encodings = request.get_header_value_count("Transfer-Encoding");
            // Request smuggling: a front server may see another length in such a request, and httplib takes
            // what is no number for 0. What follows is not the next request.
            const bool isTwice = lengths + encodings > 1 || (encodings > 0 && request.version != "HTTP/1.1");
            const std::string length = request.get_header_value("Content-Length");
            if (isTwice || length.find_first_not_of("0123456789") != length.npos) {
                mustClose_ = true;
                refuse(response, 400,
                       isTwice ? "the length of the request is given twice" : "the length is not a number");
                return HandlerResponse::Handled;
            }
            if (request.method == "POST") return HandlerResponse::Unhandled;
            if (encodings > 0 || (lengths > 0 && length != "0")) mustClose_ = true;
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
        while (!isStopping && stream.awaitRequest(Clock::now() + limits.idle)) {
            bool isClosed = false;
            mustClose_ = false;
            const bool served = process_request(stream, isStopping, isClosed,
                                                [&](httplib::Request& request) { stream.restore(&request); });
            if (const int status = stream.refusal()) return stream.refuse(rawRefusal(status));
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
            case 431:
                return "the headers are too long";
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

    // For a head that httplib did not get to its end.
    static std::string rawRefusal(int status) {
        const std::string body = std::string("{\"error\":\"") + reasonOf(status) + "\"}\n";
        return "HTTP/1.1 " + std::to_string(status) +
               (status == 414 ? " URI Too Long" : " Request Header Fields Too Large") +
               "\r\nConnection: close\r\nContent-Type: " + json +
               "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    const Handler handler_;
    static thread_local bool mustClose_;  // close the connection after this reply
};

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
