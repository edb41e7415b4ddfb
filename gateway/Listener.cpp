#include "Listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace gateway {

namespace {

constexpr char unixPrefix[] = "unix:";
constexpr int backlog = 511;    // connections that wait to be accepted; the kernel's somaxconn may be lower
constexpr int firstPassed = 3;  // SD_LISTEN_FDS_START

[[noreturn]] void fail(const std::string& address, const std::string& reason) {
    throw std::runtime_error("cannot listen on " + address + ": " + reason);
}

[[noreturn]] void failWithErrno(const std::string& address) {
    fail(address, std::strerror(errno));
}

int newSocket(int family) {
    return socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

bool isStale(const sockaddr_un& name) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return false;
    const bool stale = connect(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 &&
                       errno == ECONNREFUSED;
    close(descriptor);
    return stale;
}

int listenOnPath(const std::string& path, const std::string& address) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.empty() || path[0] != '/' || path.size() >= sizeof name.sun_path)
        fail(address, "give an absolute path of at most 107 bytes");
    path.copy(name.sun_path, path.size());
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) fail(address, "another file has this path");
        if (!isStale(name)) fail(address, "another program listens there");
        unlink(path.c_str());
    }
    const int descriptor = newSocket(AF_UNIX);
    if (descriptor < 0) failWithErrno(address);
    // Set the mode before listen(2): connections are refused until then.
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
        chmod(path.c_str(), 0660) != 0 || listen(descriptor, backlog) != 0) {
        const int error = errno;
        close(descriptor);
        errno = error;
        failWithErrno(address);
    }
    return descriptor;
}

int listenOnHost(const std::string& address) {
    const std::size_t colon = address.rfind(':');
    if (colon == address.npos || colon == 0 || colon + 1 == address.size())
        fail(address, "write host:port, [IPv6 address]:port or unix:/path");
    std::string host = address.substr(0, colon);
    if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &found);
    if (error != 0) fail(address, gai_strerror(error));
    const int descriptor = newSocket(found->ai_family);
    const int on = 1;
    const bool isListening =
        descriptor >= 0 && setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(descriptor, found->ai_addr, found->ai_addrlen) == 0 && listen(descriptor, backlog) == 0;
    const int failure = errno;
    freeaddrinfo(found);
    if (isListening) return descriptor;
    if (descriptor >= 0) close(descriptor);
    errno = failure;
    failWithErrno(address);
}

}  // namespace

Listener::Listener(const std::string& address) {
    if (address.compare(0, sizeof unixPrefix - 1, unixPrefix) == 0) {
        const std::string path = address.substr(sizeof unixPrefix - 1);
        descriptor_ = listenOnPath(path, address);
        path_ = path;
    } else {
        descriptor_ = listenOnHost(address);
    }
}

Listener::Listener(int descriptor) : descriptor_(descriptor) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}

Listener::Listener(Listener&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), path_(std::move(other.path_)) {
    other.path_.clear();
}

Listener::~Listener() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!path_.empty()) unlink(path_.c_str());
}

std::string Listener::name() const {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size) != 0) return "?";
    if (address.ss_family == AF_UNIX)
        return unixPrefix + std::string(reinterpret_cast<const sockaddr_un*>(&address)->sun_path);
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), size, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return "?";
    const bool isIpv6 = address.ss_family == AF_INET6;
    return std::string("http://") + (isIpv6 ? "[" : "") + host + (isIpv6 ? "]:" : ":") + port + "/";
}

std::vector<PassedSocket> takePassedSockets() {
    std::vector<PassedSocket> sockets;
    const char* const pid = std::getenv("LISTEN_PID");
    const char* const count = std::getenv("LISTEN_FDS");
    if (pid != nullptr && count != nullptr && std::strtol(pid, nullptr, 10) == getpid()) {
        const char* const variable = std::getenv("LISTEN_FDNAMES");
        std::string names = variable == nullptr ? "" : variable;
        const long number = std::strtol(count, nullptr, 10);
        for (int i = 0; i < number; ++i) {
            const std::size_t end = names.find(':');
            sockets.push_back({firstPassed + i, names.substr(0, end)});
            names = end == names.npos ? "" : names.substr(end + 1);
        }
    }
    unsetenv("LISTEN_PID");
    unsetenv("LISTEN_FDS");
    unsetenv("LISTEN_FDNAMES");
    return sockets;
}

}  // namespace gateway
