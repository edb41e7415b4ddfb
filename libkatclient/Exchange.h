// Requests and replies over a connection: pipelined, and repeated if the connection is lost.
#ifndef KATCLIENT_EXCHANGE_H
#define KATCLIENT_EXCHANGE_H

#include <cstddef>
#include <cstdint>

#include "Connection.h"
#include "katclient.h"

namespace katclient_internal {

// The bodies of requests of one kind. The memory is the caller's.
struct Requests {
    const char* prefix;          // of each message, four bytes
    const char* const* bodies;   // `count`
    const std::size_t* lengths;  // of the bodies; null: each body ends with a zero byte
    std::size_t count;
};

// Not thread-safe. Neither allocates nor throws.
class Exchange {
public:
    explicit Exchange(const sockaddr_un& address) : connection_(address) {}
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    unsigned connectMs = 0;  // 0: one attempt
    unsigned answerMs = 0;   // 0: no limit

    // KATCLIENT_OK if there is a connection, else KATCLIENT_NO_DAEMON.
    int connect();
    // Makes all requests and sets the status of each answer. Returns the first that is not KATCLIENT_OK.
    int run(const Requests& requests, katclient_answer* answers);
    // Records a failure that the caller found; returns it.
    int fail(int status, const char* message);
    // Of the last failure.
    const char* message() const { return message_; }

private:
    int failToConnect(int error);
    bool prepare();
    void step();
    void gather();
    bool put(const char* body, std::size_t length);
    bool outgoing() const { return outStart_ < outEnd_ || tailSize_ != 0; }
    bool send();
    bool receive();
    void takeReplies();
    std::int64_t leftMs() const;
    void lost(bool wasRead);
    void giveUp(int status);
    void settle(int status);
    void skipSettled();
    void describe(int status);
    bool isControl() const;
    std::size_t lengthOf(std::size_t index) const;

    static constexpr int pending = -1;             // status of an answer that has not come yet
    static constexpr std::size_t outSize = 16384;  // gathered for one send
    static constexpr std::size_t inSize = 16384;   // many replies
    static constexpr std::size_t window = 128;     // maximum of requests in flight

    Connection connection_;
    char message_[320] = "";

    // Of the current run.
    Requests requests_{};
    katclient_answer* answers_ = nullptr;
    std::size_t answered_ = 0;  // the first request whose answer is pending
    std::size_t asked_ = 0;     // the first one that is not gathered
    std::size_t inFlight_ = 0;  // sent or in out_, and pending
    std::size_t sent_ = 0;      // bytes since nothing was in flight
    unsigned attempts_ = 0;     // connections lost while the request answered_ was in flight
    bool isFresh_ = false;      // the connection has not answered anything yet
    bool isAlone_ = false;      // one request at a time, because the last one may have been refused
    std::int64_t since_ = 0;    // start of the time limit for the next answer
    int first_ = KATCLIENT_OK;  // first failure

    std::size_t outStart_ = 0;  // [outStart_, outEnd_) of out_ is to be sent,
    std::size_t outEnd_ = 0;
    const char* tail_ = nullptr;  // then the rest of a long body, from the caller's memory
    std::size_t tailSize_ = 0;
    std::size_t inEnd_ = 0;  // received, less than a reply after takeReplies()
    char out_[outSize];
    char in_[inSize];
};

}  // namespace katclient_internal

#endif
