// Loads on the server's own socket.
#include <errno.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <deque>

#include "Fail.h"
#include "Load.h"
#include "Sockets.h"
#include "Stream.h"

namespace bench {

namespace {

constexpr int PATIENCE_SEC = 30;

int connectOrFail(const std::string& path) {
    const int fd = connectTo(path);
    if (fd < 0) fail("cannot connect to %s: %s", path.c_str(), strerror(errno));
    return fd;
}

void limitPatience(int fd) {
    const timeval limit{PATIENCE_SEC, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

// A single connection needs no epoll, which saves a system call per request.
void loadOne(Stream* stream, Schedule* schedule) {
    do {
        stream->send();
        stream->receive(schedule);
    } while (!schedule->isOver(nowNanoseconds()));
}

void loadMany(std::deque<Stream>* streams, Schedule* schedule) {
    const int poll = epoll_create1(EPOLL_CLOEXEC);
    if (poll < 0) fail("no epoll: %s", strerror(errno));
    for (Stream& stream : *streams) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &stream;
        if (epoll_ctl(poll, EPOLL_CTL_ADD, stream.fd(), &event) != 0) fail("no epoll: %s", strerror(errno));
        stream.send();
    }
    epoll_event events[64];
    while (!schedule->isOver(nowNanoseconds())) {
        const int ready = epoll_wait(poll, events, 64, PATIENCE_SEC * 1000);
        if (ready == 0) fail("no answer in 30 seconds");
        for (int i = 0; i < ready; ++i) {
            Stream* const stream = static_cast<Stream*>(events[i].data.ptr);
            if (stream->receive(schedule)) stream->send();
        }
    }
    close(poll);
}

}  // namespace

void loadConnections(const ClientOptions& options, const Questions& questions, Schedule* schedule) {
    std::deque<Stream> streams;
    for (unsigned i = 0; i < options.connections; ++i) {
        const int fd = connectOrFail(options.socket);
        limitPatience(fd);
        const std::uint64_t first = std::uint64_t{questions.count()} * i / options.connections;
        streams.emplace_back(fd, questions, static_cast<unsigned>(first), options.window);
    }
    if (streams.size() == 1) {
        loadOne(&streams.front(), schedule);
    } else {
        loadMany(&streams, schedule);
    }
}

void loadByReconnecting(const ClientOptions& options, const Questions& questions, Schedule* schedule) {
    unsigned question = 0;
    for (std::uint64_t now = nowNanoseconds(); !schedule->isOver(now); now = nowNanoseconds()) {
        const int fd = connectOrFail(options.socket);
        Schedule unused(options);
        Stream stream(fd, questions, question, 1);
        stream.send();
        if (!stream.receive(&unused)) return;
        close(fd);
        schedule->answered(now, nowNanoseconds());
        question = question + 1 == questions.count() ? 0 : question + 1;
    }
}

unsigned holdIdle(const ClientOptions& options, const Questions& questions) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const std::size_t requestSize = questions.requestEnd[0];
    const unsigned wanted = options.idle > 0 ? static_cast<unsigned>(options.idle) : 0;
    for (unsigned held = 0; held < wanted; ++held) {
        const int fd = connectTo(options.socket);
        char reply[64];
        if (fd < 0) return held;
        limitPatience(fd);
        if (!writeAll(fd, questions.requests.data(), requestSize) || read(fd, reply, sizeof(reply)) <= 0) {
            close(fd);
            return held;
        }
    }
    return wanted;
}

}  // namespace bench
