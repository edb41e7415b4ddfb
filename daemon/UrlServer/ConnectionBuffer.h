#ifndef KATD_CONNECTIONBUFFER_H
#define KATD_CONNECTIONBUFFER_H

#include <cstdint>

#include "UrlServer/Protocol.h"

namespace KATD_SPACE {

// The buffers of a connection: bytes read ahead, and replies that are to go out together. For the
// connection's thread, except callIsSlow(). Does not own the socket. Nothing throws.
//
// Replies are held back over calls of the engine too, for a write costs more than the answer of an engine
// that takes microseconds. No reply waits for a slow call: the thread of the Watchdog sends what has been
// held back for holdMs, and all replies are sent before the call that follows. At level debug nothing is held
// back: even a list hit has a message, which may wait for the log.
//
// A list hit costs two system calls, one read and one write, instead of four: a server that makes these alone
// answers 1.5 times as much on one connection. With 16 requests sent ahead katd answers 9.7 times what it
// does one by one (bench.sh wire).
class ConnectionBuffer {
public:
    explicit ConnectionBuffer(int descriptor) : socket(descriptor) {}
    ConnectionBuffer(const ConnectionBuffer&) = delete;
    ConnectionBuffer& operator=(const ConnectionBuffer&) = delete;

    // From now on as much is read as the kernel has, and replies may be held back.
    void readAhead() { readsAhead = true; }

    // As Utils::readn, with the same messages.
    unsigned readn(void* to, unsigned n);

    // Takes a reply. It is held back while the next request is a query that has been read ahead completely
    // and the buffer has space, except at level debug; otherwise all replies are sent. True unless sending
    // failed, now or before.
    bool reply(const ReplyHeader& header, const unsigned char* categories);

    // Sends the replies that are held back; true if all were sent. A failure is reported once, for the reply
    // that was cut off. Call it before anything that may wait, except readn and control requests, before
    // which reply() has sent everything, and calls of the engine that this object's Watchdog watches.
    bool send();

    // Whether replies may be held back over the next call of the engine: false if replies were due during the
    // last one, because it was slow or because quick ones in a row took holdMs. A slow call that began with
    // nothing held back is not noticed: its reply may be held back too.
    bool expectsQuickCall() const { return quick; }

    // A call of the engine begins now (Utils::nowMs). Returns the time at which callIsSlow() is due if the
    // call is still under way then, or noCallDue.
    std::int64_t beginCall(std::int64_t now);

    // Sends as much of what is held back as the socket takes without waiting. Returns the time at which it is
    // due again, for the rest, or noCallDue. For another thread; the caller keeps the connection's thread in
    // its call meanwhile. A failure is left to send().
    std::int64_t callIsSlow();

    static constexpr std::int64_t noCallDue = INT64_MAX;

    // Waits that long. Returns true, early, if the client has closed the connection. One that has only shut
    // down its writing side can still take its answers: it counts as connected.
    bool waitForHangUp(std::uint32_t milliseconds) const;

private:
    bool holdsWholeQuery() const;
    void reportUnsent(unsigned out) const;

    static constexpr std::int64_t holdMs = 2;     // until replies that are held back over calls are due
    static constexpr std::int64_t resendMs = 50;  // until a client that did not read is tried again
    static constexpr unsigned inputSize = 4096;
    static constexpr unsigned outputSize = 2048;  // bound of what is held back
    static constexpr unsigned largestReply = sizeof(ReplyHeader) + maxCategories;

    const int socket;
    bool readsAhead = false;
    bool broken = false;      // sending has failed
    unsigned inputStart = 0;  // bytes [inputStart, inputEnd) of input are read and not yet taken
    unsigned inputEnd = 0;
    // Bytes [outputStart, outputEnd) of output wait to be sent. Replies begin at 0.
    unsigned outputStart = 0;
    unsigned outputEnd = 0;
    bool quick = true;           // no callIsSlow() since the last call began
    std::int64_t sendDueMs = 0;  // for what is held back over calls; 0: no call has begun
    char output[outputSize];
    char input[inputSize];
};

}  // namespace KATD_SPACE

#endif
