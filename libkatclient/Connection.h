// The socket of a client. Every wait has a limit.
#ifndef KATCLIENT_CONNECTION_H
#define KATCLIENT_CONNECTION_H

#include <sys/un.h>

#include <cstddef>
#include <cstdint>

namespace katclient_internal {

// Milliseconds of the monotonic clock.
std::int64_t nowMs();

// One connection to a path. Not thread-safe. Owns the descriptor, which is close-on-exec. Nothing throws, and
// no call raises SIGPIPE.
class Connection {
public:
    enum class Io {
        DONE,   // some bytes were transferred
        AGAIN,  // none can be transferred now
        ENDED,  // the daemon closed its end after it had read everything
        LOST    // the connection broke
    };

    explicit Connection(const sockaddr_un& address) : address_(address) {}
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const char* path() const { return address_.sun_path; }
    bool isOpen() const { return fd_ >= 0; }
    void close();

    // Connects; tries again for connectMs milliseconds while that fails. If the daemon listens, but does not
    // accept, waits for connectMs or answerMs, whichever is longer; without a limit if answerMs is 0. Returns
    // 0 or the errno of the last attempt; isOpen() is false then.
    int open(unsigned connectMs, unsigned answerMs);

    // Sends as much of two buffers as the socket takes; sets *sent if DONE.
    Io send(const char* first, std::size_t firstSize, const char* second, std::size_t secondSize,
            std::size_t* sent);
    // Receives what has arrived. With `wait`, waits without a limit instead of returning AGAIN.
    Io receive(char* to, std::size_t size, bool wait, std::size_t* received);
    // Waits until bytes can be received or, with `orSent`, sent, for at most limitMs milliseconds, or without
    // a limit if that is negative. False after the limit or a signal.
    bool wait(bool orSent, std::int64_t limitMs);

private:
    int attempt(std::int64_t limitMs);

    const sockaddr_un address_;
    int fd_ = -1;  // -1: not connected
};

}  // namespace katclient_internal

#endif
