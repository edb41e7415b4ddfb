#include "Sockets.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Fail.h"

namespace bench {

namespace {

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) fail("the path of the socket is too long: %s", path.c_str());
    memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

}  // namespace

int listenOn(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    unlink(path.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(fd, 32) != 0)
        fail("cannot serve on %s: %s", path.c_str(), strerror(errno));
    return fd;
}

int connectTo(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

bool writeAll(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace bench
