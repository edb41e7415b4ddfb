#include "Exchange.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace katclient_internal {

namespace {

constexpr std::size_t prefixSize = 4;
constexpr std::size_t largestMessage = std::size_t{16} * 1024 * 1024;  // katd refuses more
constexpr char control[] = "ctl:";

struct ReplyHeader {
    std::int32_t result;   // 0
    std::uint32_t length;  // category bytes behind the header
    std::uint8_t matched;  // 0 or 1
    std::uint8_t zeros[3];
};
static_assert(sizeof(ReplyHeader) == 12, "the header is 12 bytes on the wire");

// A zero byte would end the URL for katd, which would then answer for another one.
bool isUrl(const char* text, std::size_t length) {
    return length != 0 && length <= largestMessage - prefixSize && std::memchr(text, 0, length) == nullptr;
}

}  // namespace

int Exchange::connect() {
    if (connection_.isOpen()) return KATCLIENT_OK;
    const int error = connection_.open(connectMs, answerMs);
    return error == 0 ? KATCLIENT_OK : failToConnect(error);
}

int Exchange::failToConnect(int error) {
    char text[128] = "";
    const char* const remedy = error == EACCES ? "use an account that may enter the socket's folder"
                                               : "start katd, or name the path of its socket";
    // The GNU one: it may return another text than the buffer.
    std::snprintf(message_, sizeof message_, "no daemon answers on %s (%s): %s", connection_.path(),
                  strerror_r(error, text, sizeof text), remedy);
    return KATCLIENT_NO_DAEMON;
}

int Exchange::fail(int status, const char* message) {
    std::snprintf(message_, sizeof message_, "%s", message);
    return status;
}

int Exchange::run(const Requests& requests, katclient_answer* answers) {
    requests_ = requests;
    answers_ = answers;
    answered_ = 0;
    attempts_ = 0;
    isFresh_ = isAlone_ = false;
    first_ = KATCLIENT_OK;
    const bool isControl = std::memcmp(requests.prefix, control, prefixSize) == 0;
    for (std::size_t i = 0; i < requests.count; ++i) {
        const char* const body = requests.bodies[i];
        const bool isGood = body != nullptr && (isControl || isUrl(body, lengthOf(i)));
        answers[i].status = isGood ? pending : KATCLIENT_BAD_ARGUMENT;
        answers[i].known = 0;
        answers[i].count = 0;
        if (!isGood && first_ == KATCLIENT_OK) {
            first_ = fail(KATCLIENT_BAD_ARGUMENT,
                          "a URL is a text of 1 byte to 16 MiB without a zero byte: ask for such a one");
        }
    }
    skipSettled();
    asked_ = answered_;
    inFlight_ = inEnd_ = outStart_ = outEnd_ = tailSize_ = 0;
    while (answered_ < requests.count && prepare())
        step();
    // What is unasked for belongs to no later question.
    if (inEnd_ != 0) connection_.close();
    return first_;
}

// A connection. False when none can be made: nothing is pending then.
bool Exchange::prepare() {
    if (connection_.isOpen()) return true;
    const int error = connection_.open(connectMs, answerMs);
    if (error != 0) {
        if (first_ == KATCLIENT_OK) first_ = failToConnect(error);
        for (; answered_ < requests_.count; skipSettled())
            answers_[answered_].status = KATCLIENT_NO_DAEMON;
        return false;
    }
    isFresh_ = true;
    asked_ = answered_;
    inFlight_ = inEnd_ = outStart_ = outEnd_ = tailSize_ = 0;
    return true;
}

// One turn of sending and receiving. Both go on side by side: a daemon that waits for its replies to be taken
// reads no further request.
void Exchange::step() {
    gather();
    if (outgoing() && !send()) return;
    if (answerMs != 0 || outgoing()) {
        const std::int64_t left = leftMs();
        if (left == 0) {
            giveUp(KATCLIENT_TIMED_OUT);
            return;
        }
        if (!connection_.wait(outgoing(), left)) return;
    }
    receive();
}

void Exchange::gather() {
    if (outgoing() || inFlight_ > (isAlone_ ? 0 : window / 2)) return;
    outStart_ = outEnd_ = 0;
    if (inFlight_ == 0) {
        sent_ = 0;
        if (answerMs != 0) since_ = nowMs();
    }
    const std::size_t limit = isAlone_ ? 1 : window;
    for (; asked_ < requests_.count && inFlight_ < limit; ++asked_) {
        if (answers_[asked_].status != pending) continue;
        if (!put(requests_.bodies[asked_], lengthOf(asked_))) return;
        ++inFlight_;
    }
}

// False when there is no room, or nothing may come behind.
bool Exchange::put(const char* body, std::size_t length) {
    const auto size = static_cast<std::int32_t>(prefixSize + length);
    const std::size_t needed = sizeof size + prefixSize + length;
    const bool isLong = needed > outSize / 4;
    if (tailSize_ != 0 || (isLong ? needed - length : needed) > outSize - outEnd_) return false;
    std::memcpy(out_ + outEnd_, &size, sizeof size);
    std::memcpy(out_ + outEnd_ + sizeof size, requests_.prefix, prefixSize);
    outEnd_ += sizeof size + prefixSize;
    if (isLong) {
        tail_ = body;
        tailSize_ = length;
    } else {
        std::memcpy(out_ + outEnd_, body, length);
        outEnd_ += length;
    }
    return true;
}

bool Exchange::send() {
    std::size_t count = 0;
    const Connection::Io io =
        connection_.send(out_ + outStart_, outEnd_ - outStart_, tail_, tailSize_, &count);
    if (io == Connection::Io::AGAIN) return true;
    if (io != Connection::Io::DONE) {
        // Replies that came before the end may still be there.
        while (connection_.isOpen() && receive()) {
        }
        if (connection_.isOpen()) lost(false);
        return false;
    }
    sent_ += count;
    const std::size_t ofOut = std::min(count, outEnd_ - outStart_);
    outStart_ += ofOut;
    tail_ += count - ofOut;
    tailSize_ -= count - ofOut;
    return true;
}

// False when nothing came.
bool Exchange::receive() {
    std::size_t count = 0;
    const bool mayWait = answerMs == 0 && !outgoing();
    const Connection::Io io = connection_.receive(in_ + inEnd_, inSize - inEnd_, mayWait, &count);
    if (io == Connection::Io::AGAIN) return false;
    if (io != Connection::Io::DONE) {
        lost(io == Connection::Io::ENDED);
        return false;
    }
    inEnd_ += count;
    takeReplies();
    return true;
}

void Exchange::takeReplies() {
    std::size_t taken = 0;
    while (inFlight_ != 0 && inEnd_ - taken >= sizeof(ReplyHeader)) {
        ReplyHeader header;
        std::memcpy(&header, in_ + taken, sizeof header);
        if (header.result != 0 || header.length > KATCLIENT_MAX_CATEGORIES || header.matched > 1) {
            giveUp(KATCLIENT_BAD_REPLY);
            return;
        }
        if (inEnd_ - taken < sizeof header + header.length) break;
        katclient_answer& answer = answers_[answered_];
        answer.known = header.matched;
        answer.count = header.length;
        std::memcpy(answer.categories, in_ + taken + sizeof header, header.length);
        taken += sizeof header + header.length;
        --inFlight_;
        settle(KATCLIENT_OK);
        isFresh_ = isAlone_ = false;
    }
    if (taken == 0) return;
    inEnd_ -= taken;
    std::memmove(in_, in_ + taken, inEnd_);
    if (answerMs != 0) since_ = nowMs();
    if (inFlight_ == 0 && inEnd_ != 0) connection_.close();  // more replies than requests
}

// What is left of the time for the next answer, rounded up; negative without a limit.
std::int64_t Exchange::leftMs() const {
    return answerMs == 0 ? -1 : std::max<std::int64_t>(since_ + answerMs + 1 - nowMs(), 0);
}

// The request whose turn it was may be what the daemon did not like, or the daemon ended: which one shows
// when that request is made again, alone. When the daemon did not even read it, it does not count: it was
// about to end.
void Exchange::lost(bool wasRead) {
    connection_.close();
    isAlone_ = true;
    if (sent_ == 0 && !isFresh_) return;
    if (++attempts_ >= (wasRead ? 2U : 3U)) giveUp(KATCLIENT_CLOSED);
}

// No answer comes for the request whose turn it is.
void Exchange::giveUp(int status) {
    connection_.close();
    isAlone_ = true;
    if (first_ == KATCLIENT_OK) {
        first_ = status;
        describe(status);
    }
    settle(status);
}

void Exchange::settle(int status) {
    answers_[answered_].status = status;
    attempts_ = 0;
    skipSettled();
}

void Exchange::skipSettled() {
    while (answered_ < requests_.count && answers_[answered_].status != pending)
        ++answered_;
}

void Exchange::describe(int status) {
    if (status == KATCLIENT_TIMED_OUT) {
        std::snprintf(message_, sizeof message_,
                      "no answer within %u.%03u seconds: look into katd's log, or wait longer",
                      answerMs / 1000, answerMs % 1000);
    } else if (status == KATCLIENT_BAD_REPLY) {
        std::snprintf(message_, sizeof message_,
                      "what answers on %s is not katd: name the path of katd's socket", connection_.path());
    } else {
        fail(status, katclient_status_text(status));
    }
}

std::size_t Exchange::lengthOf(std::size_t index) const {
    return requests_.lengths != nullptr ? requests_.lengths[index] : std::strlen(requests_.bodies[index]);
}

}  // namespace katclient_internal
