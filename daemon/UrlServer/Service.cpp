// The accept loop and the threads of the connections.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <new>

#include "KatdUtil/DetachedThread.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/Engine.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/UrlServerInstance.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";
constexpr int backlog = 32;
constexpr unsigned connectionStackSize =
    512 * 1024;  // bytes: room for thousands of threads in a 32-bit process

// A descriptor kept in reserve: when all are used up, other threads may take that of the closed listening
// socket before the new one is made.
class SpareDescriptor {
public:
    SpareDescriptor() { take(); }
    ~SpareDescriptor() { release(); }
    SpareDescriptor(const SpareDescriptor&) = delete;
    SpareDescriptor& operator=(const SpareDescriptor&) = delete;

    void take() {
        if (fd < 0) fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    void release() {
        if (fd >= 0) close(fd);
        fd = -1;
    }

private:
    int fd = -1;
};

bool isShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

// A shortage lasts until a client leaves: without a pause the loop would only fill the log.
void pauseAMoment() {
    const timespec moment{0, 200 * 1000000L};
    nanosleep(&moment, nullptr);
}

// Gives the connection a thread of its own, or closes it.
void startInstance(int connection) {
    const int error = startDetachedThread(UrlServer::createInstance,
                                          reinterpret_cast<void*>(static_cast<std::intptr_t>(connection)),
                                          connectionStackSize);
    if (error == 0) return;
    ERR_MSG("Error: Fail to create url server instance thread, [%d][%s].", error, std::strerror(errno));
    close(connection);
}

// Makes the listening socket again. It could be made before: a shortage of descriptors or memory must not end
// a daemon that serves.
int recreateListener(const char* path) {
    for (;;) {
        errno = 0;
        const int listener = Utils::createLocalTcpService(path, backlog);
        if (listener >= 0 || !isShortage(errno)) return listener;
        ERR_MSG("fail to create local socket with [%s][%d]", path, listener);
        pauseAMoment();
    }
}

// Accepts connections until that fails; returns the error number.
int acceptConnections(int listener) {
    for (;;) {
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) {
            startInstance(connection);
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

void UrlServer::startService() {
    if (!valid) {
        ERR_MSG("In %s, UrlServer is not valid", "startService");
        return;
    }
    const char* path = ops.conf.getSvcConnString();
    if (path == nullptr || *path == '\0') {
        ERR_MSG("svc_conn_string is null");
        return;
    }
    INFO_MSG("start url query service with [%s]", path);
    SpareDescriptor spare;
    int listener = Utils::createLocalTcpService(path, backlog);
    if (listener < 0) {
        ERR_MSG("fail to create local socket with [%s][%d]", path, listener);
        return;
    }
    for (;;) {
        spare.take();
        const int error = acceptConnections(listener);
        spare.release();
        close(listener);
        // Before anything that takes time, such as a message: until then clients are told that no daemon
        // runs.
        listener = recreateListener(path);
        errno = error;
        ERR_MSG("In %s, accept error. [%s]", "startService", std::strerror(error));
        if (listener < 0) {
            ERR_MSG("fail to create local socket with [%s][%d]", path, listener);
            return;
        }
        pauseAMoment();
    }
}

void* UrlServer::createInstance(void* socket) {
    const int connection = static_cast<int>(reinterpret_cast<std::intptr_t>(socket));
    UrlServerInstance* instance = new (std::nothrow) UrlServerInstance(connection);
    if (instance == nullptr) {
        ERR_MSG("fail to create UrlServerInstance");
        close(connection);
        return nullptr;
    }
    pthread_setspecific(ops.instanceKey, instance);
    {
        EngineAttachment attachment;
        instance->start();
    }
    close(connection);
    pthread_setspecific(ops.instanceKey, nullptr);
    delete instance;
    return nullptr;
}

}  // namespace KATD_SPACE
