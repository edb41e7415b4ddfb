#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdUtil";

constexpr std::size_t pathSize = sizeof(sockaddr_un::sun_path);  // bytes, including the NUL

// REQUIRES: path is shorter than pathSize.
sockaddr_un localAddress(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, std::strlen(path));
    return address;
}

int localSocket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

}  // namespace

int Utils::createLocalTcpService(const char* path, int backlog) {
    if (path == nullptr) {
        ERR_MSG("conn_str is null, can not create local tcp service with it");
        return -1;
    }
    if (std::strlen(path) >= pathSize) {
        ERR_MSG("[%s] is too long, can not create local tcp service with it", path);
        return -1;
    }
    unlink(path);
    makeParentDir(path);
    const int fd = localSocket();
    if (fd < 0) {
        ERR_MSG("Fail to create loacl socket [%m]");
        return -1;
    }
    const sockaddr_un address = localAddress(path);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        ERR_MSG("fail to bind socket fd to [%s][%m]", path);
        close(fd);
        return -2;
    }
    if (listen(fd, backlog) != 0) {
        ERR_MSG("fail to listen local socket based on [%s] [%m]", path);
        close(fd);
        return -3;
    }
    return fd;
}

int Utils::connectLocalTcp(const char* path) {
    if (path == nullptr) {
        ERR_MSG("conn_str is null, can not connect to local tcp service with it");
        return -1;
    }
    if (std::strlen(path) >= pathSize) {
        ERR_MSG("[%s] is too long, can not connect to local tcp service with it", path);
        return -1;
    }
    const int fd = localSocket();
    if (fd < 0) {
        ERR_MSG("fail to call socket()[%m]");
        return -1;
    }
    const sockaddr_un address = localAddress(path);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        DBG_MSG("Fail to connect local socket service [%s], [%m]", path);
        close(fd);
        return -1;
    }
    return fd;
}

unsigned Utils::readn(int fd, void* buf, unsigned n) {
    return readAtLeast(fd, buf, 0, n, n);
}

unsigned Utils::readAtLeast(int fd, void* buf, unsigned have, unsigned n, unsigned size) {
    if (fd < 0) {
        ERR_MSG("In %s, fd < 0", "readn");
        return 0;
    }
    while (have < n) {
        const ssize_t result = read(fd, static_cast<char*>(buf) + have, size - have);
        if (result < 0 && errno == EINTR) continue;
        if (result < 0) {
            DBG_MSG("connection is closed[%m]");
            return 0;
        }
        if (result == 0) {
            DBG_MSG("connection is closed");
            break;
        }
        have += static_cast<unsigned>(result);
    }
    return have;
}

unsigned Utils::writen(int fd, const char* buf, unsigned n, unsigned* out) {
    unsigned unasked = 0;
    unsigned& done = out != nullptr ? *out : unasked;
    done = 0;
    if (fd < 0) {
        ERR_MSG("In %s, fd < 0", "writen");
        return 0;
    }
    while (done < n) {
        errno = 0;  // a result of 0 does not set it: an old EINTR would cause an endless loop
        const ssize_t result = write(fd, buf + done, n - done);
        if (result <= 0 && errno == EINTR) continue;
        if (result <= 0) {
            ERR_MSG("connection is closed[%m]");
            return 0;
        }
        done += static_cast<unsigned>(result);
    }
    return done;
}

}  // namespace KATD_SPACE
