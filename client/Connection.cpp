#include "Connection.h"

#include <poll.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "KatdUtil/Utils.h"
#include "UrlServer/Protocol.h"

namespace katc {

using KATD_SPACE::ReplyHeader;
using KATD_SPACE::Utils;

namespace {

// The request as it goes over the socket: the length of the message in front of it.
std::string framed(const char* prefix, std::string_view body) {
    const auto length = static_cast<std::int32_t>(KATD_SPACE::PREFIX_LENGTH + body.size());
    std::string request(sizeof length, '\0');
    std::memcpy(&request[0], &length, sizeof length);
    request.append(prefix, KATD_SPACE::PREFIX_LENGTH);
    request.append(body);
    return request;
}

}  // namespace

Connection::Connection(std::string socketPath) : socketPath_(std::move(socketPath)) {}

Connection::~Connection() {
    disconnect();
}

bool Connection::connect() {
    if (socketPath_.size() >= sizeof(sockaddr_un::sun_path)) {
        problem_ = "the socket's path " + socketPath_ +
                   " is too long: " + std::to_string(sizeof(sockaddr_un::sun_path) - 1) +
                   " characters are the limit";
        return false;
    }
    fd_ = Utils::connectLocalTcp(socketPath_.c_str());
    if (fd_ >= 0) return true;
    const int error = errno;
    problem_ = "no daemon answers on " + socketPath_ + " (" + std::strerror(error) + "): " +
               (error == EACCES ? "use an account that may enter the socket's folder"
                                : "start katd, or name its socket with -s");
    return false;
}

void Connection::disconnect() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

bool Connection::isUsable() const {
    if (fd_ < 0) return false;
    pollfd events{fd_, POLLIN, 0};
    return poll(&events, 1, 0) == 0;
}

ExitStatus Connection::ask(const char* prefix, std::string_view body, Reply* reply) {
    // A length on the wire is a signed number of 32 bits.
    if (body.size() >
        static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()) - KATD_SPACE::PREFIX_LENGTH) {
        problem_ = "it is too long to be sent";
        return unanswered;
    }
    if (!isUsable()) {
        disconnect();
        if (!connect()) return noDaemon;
    }
    const std::string request = framed(prefix, body);
    const auto size = static_cast<unsigned>(request.size());
    problem_ = "the daemon closed the connection: its log says why";
    if (Utils::writen(fd_, request.data(), size) == size && receive(reply)) return answered;
    disconnect();
    return unanswered;
}

bool Connection::receive(Reply* reply) {
    ReplyHeader header{};
    if (Utils::readn(fd_, &header, sizeof header) != sizeof header) return false;
    if (header.result != 0 || header.length > KATD_SPACE::MAX_CATEGORIES || header.matched > 1) {
        problem_ = "what answers on " + socketPath_ + " is not katd: name katd's socket with -s";
        return false;
    }
    reply->matched = header.matched == 1;
    reply->categories.resize(header.length);
    return Utils::readn(fd_, reply->categories.data(), header.length) == header.length;
}

}  // namespace katc
