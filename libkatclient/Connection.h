// The socket of a client: made, kept and closed, with every wait limited.
#ifndef KATCLIENT_CONNECTION_H
#define KATCLIENT_CONNECTION_H

#include <sys/un.h>

#include <cstddef>
#include <cstdint>

namespace katclient_internal {

// Milliseconds of the monotonic clock.
std::int64_t nowMs();

// One connection to a path, for one thread. Owns the descriptor, which is close-on-exec. Nothing throws, and
// no call raises SIGPIPE.
class Connection {
public:
    enum class Io {
        DONE,   // some bytes were moved
        AGAIN,  // none could be moved now
        ENDED,  // the daemon closed its end, having read all that it was sent
        LOST    // the connection broke
    };

    explicit Connection(const sockaddr_un& address) : address_(address) {}
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const char* path() const { return address_.sun_path; }
    bool isOpen() const { return fd_ >= 0; }
    void close();

    // Connects; tries again for connectMs milliseconds while that fails. A daemon that listens, but does not
    // come to accept, is waited for that long or answerMs, whichever is longer; for ever when answerMs is 0.
    // Returns 0 or the errno of the last attempt.
    int open(unsigned connectMs, unsigned answerMs);

    // Sends two pieces, as much of them as the socket takes; *sent is set with DONE.
    Io send(const char* first, std::size_t firstSize, const char* second, std::size_t secondSize,
            std::size_t* sent);
    // Receives what there is. With `wait`, waits for the first byte without a limit instead of AGAIN.
    Io receive(char* to, std::size_t room, bool wait, std::size_t* received);
    // Waits until bytes can be received or, with `orSent`, sent; for at most limitMs milliseconds, without a
    // limit when that is negative. False: the time is over, or a signal came.
    bool wait(bool orSent, std::int64_t limitMs);

private:
    int attempt(std::int64_t limitMs);

    const sockaddr_un address_;
    int fd_ = -1;  // -1: not connected
};

}  // namespace katclient_internal

#endif
