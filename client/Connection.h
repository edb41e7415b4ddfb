// The connection between katc and the daemon.
#ifndef KATC_CONNECTION_H
#define KATC_CONNECTION_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ExitStatus.h"

namespace katc {

struct Reply {
    bool matched = false;                  // the daemon's answer is definitive
    std::vector<std::uint8_t> categories;  // low bytes of the category numbers
};

// Sends requests to the daemon on one socket, one after the other, over a single connection as long as the
// daemon keeps it. For one thread. Owns the descriptor. REQUIRES: SIGPIPE is ignored.
class Connection {
public:
    explicit Connection(std::string socketPath);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Sends the four bytes of a prefix and a body, and waits for the reply. `answered`: `reply` is set.
    // `unanswered`: the daemon closed the connection instead of replying, or sent no proper reply; the next
    // request goes over a new connection. `noDaemon`: no connection. In both, problem() says what happened
    // and what to do. REQUIRES: body is not empty.
    ExitStatus ask(const char* prefix, std::string_view body, Reply* reply);

    // One sentence without its end.
    const std::string& problem() const { return problem_; }

private:
    bool connect();
    void disconnect();
    // True when there is a connection on which the daemon has neither closed its end nor said anything
    // unasked.
    bool isUsable() const;
    bool receive(Reply* reply);

    const std::string socketPath_;
    int fd_ = -1;  // -1: not connected
    std::string problem_;
};

}  // namespace katc

#endif
