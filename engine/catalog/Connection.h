// A connection to a shared store.
#ifndef KATD_ENGINE_CONNECTION_H
#define KATD_ENGINE_CONNECTION_H

#include <hiredis/hiredis.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "catalog/SharedAddress.h"
#include "catalog/SharedReply.h"

namespace engine {

using catalog::Reply;

// Not thread-safe.
class Connection {
public:
    // While the descriptor `stop` is readable, nothing waits, and everything fails.
    explicit Connection(int stop) : stop_(stop) {}
    ~Connection() { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    void close();

    // The functions below return false on failure and close the connection; failure() is then a phrase. Each
    // waits at most `limit`, open() for each address of the host, and as long as the name service takes.
    bool open(const catalog::SharedAddress::Host& host, std::chrono::milliseconds limit);
    // Sends the commands together and stores their replies, in order. An error from redis counts as a reply.
    using Command = std::vector<std::string>;
    bool exchange(const std::vector<Command>& commands, std::chrono::milliseconds limit,
                  std::vector<Reply>* replies);

    // The host of the last open(), for messages.
    const std::string& host() const { return host_; }
    const std::string& failure() const { return failure_; }
    // Whether it was closed because no reply came in time, and not again since.
    bool timedOut() const { return timedOut_; }

private:
    using Time = std::chrono::steady_clock::time_point;
    struct FreeReader {
        void operator()(redisReader* reader) const { redisReaderFree(reader); }
    };

    bool fail(const std::string& phrase);
    bool openTo(int family, const void* address, unsigned size, Time end);
    bool wait(short events, Time end);
    bool receive(Time end);

    const int stop_;
    int fd_ = -1;
    std::unique_ptr<redisReader, FreeReader> reader_;
    std::size_t received_ = 0;  // during this exchange
    std::string host_;
    std::string failure_;
    bool timedOut_ = false;
};

}  // namespace engine

#endif
