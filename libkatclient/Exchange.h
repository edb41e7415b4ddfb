// Requests and their replies over a connection, sent ahead, asked again when the connection is lost.
#ifndef KATCLIENT_EXCHANGE_H
#define KATCLIENT_EXCHANGE_H

#include <cstddef>
#include <cstdint>

#include "Connection.h"
#include "katclient.h"

namespace katclient_internal {

// The bodies of requests of one kind. The caller's memory.
struct Requests {
    const char* prefix;          // the four bytes that open each message
    const char* const* bodies;   // `count`
    const std::size_t* lengths;  // of the bodies; null: each body ends with a zero byte
    std::size_t count;
};

// For one thread. Allocates nothing, throws nothing.
class Exchange {
public:
    explicit Exchange(const sockaddr_un& address) : connection_(address) {}
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    unsigned connectMs = 0;  // 0: one attempt
    unsigned answerMs = 0;   // 0: no limit

    // KATCLIENT_OK: there is a connection. Else KATCLIENT_NO_DAEMON.
    int connect();
    // Makes all requests; each answer's status is set. The first status that is not KATCLIENT_OK.
    int run(const Requests& requests, katclient_answer* answers);
    // Takes note of a failure found by the caller; returns it.
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
    std::size_t lengthOf(std::size_t index) const;

    static constexpr int pending = -1;             // status of an answer that is still to come
    static constexpr std::size_t outSize = 16384;  // gathered for one send
    static constexpr std::size_t inSize = 16384;   // many replies
    static constexpr std::size_t window = 128;     // requests under way at most

    Connection connection_;
    char message_[320] = "";

    // Of the run at hand.
    Requests requests_{};
    katclient_answer* answers_ = nullptr;
    std::size_t answered_ = 0;  // the first request whose answer is pending
    std::size_t asked_ = 0;     // the first one that is not gathered
    std::size_t inFlight_ = 0;  // gathered and pending
    std::size_t sent_ = 0;      // bytes since nothing was under way
    unsigned attempts_ = 0;     // connections that were lost with the request answered_ under way
    bool isFresh_ = false;      // the connection has answered nothing yet
    bool isAlone_ = false;    // one request at a time: the last one may have been what closed the connection
    std::int64_t since_ = 0;  // when the wait for the next answer began
    int first_ = KATCLIENT_OK;  // first failure

    std::size_t outStart_ = 0;  // [outStart_, outEnd_) of out_ waits to be sent,
    std::size_t outEnd_ = 0;
    const char* tail_ = nullptr;  // and then the rest of a long body, which stays where the caller has it
    std::size_t tailSize_ = 0;
    std::size_t inEnd_ = 0;  // received, less than a reply after takeReplies()
    char out_[outSize];
    char in_[inSize];
};

}  // namespace katclient_internal

#endif
