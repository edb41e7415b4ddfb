#include "Exchange.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "UrlServer/Protocol.h"

namespace katclient_internal {

namespace {

using KATD_SPACE::ReplyHeader;
constexpr std::size_t prefixSize = KATD_SPACE::prefixLength;
constexpr std::size_t maxMessage = KATD_MAX_MESSAGE;
static_assert(static_cast<unsigned>(KATCLIENT_MAX_CATEGORIES) == KATD_SPACE::maxCategories,
              "any reply fits an answer");

// A zero byte would end the URL for katd, which would then answer for another one.
bool isUrl(const char* text, std::size_t length) {
    return length != 0 && length <= maxMessage - prefixSize && std::memchr(text, 0, length) == nullptr;
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
    // The GNU version: it may return a string other than the buffer.
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
    for (std::size_t i = 0; i < requests.count; ++i) {
        const char* const body = requests.bodies[i];
        const bool isGood = body != nullptr && (isControl() || isUrl(body, lengthOf(i)));
        answers[i].status = isGood ? pending : KATCLIENT_BAD_ARGUMENT;
        answers[i].known = 0;
        answers[i].count = 0;
        if (!isGood && first_ == KATCLIENT_OK) {
            first_ = fail(KATCLIENT_BAD_ARGUMENT, "a URL must have 1 byte to 16 MiB and no zero byte");
        }
    }
    skipSettled();
    asked_ = answered_;
    inFlight_ = inEnd_ = outStart_ = outEnd_ = tailSize_ = 0;
    while (answered_ < requests.count && prepare())
        step();
    // Bytes that no request asked for must not become the answer to the next one.
    if (inEnd_ != 0) connection_.close();
    return first_;
}

// Makes a connection. False if that fails: nothing is pending then.
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

// Sends and receives once. Both must go on side by side, because the daemon reads no requests while its
// replies are not read.
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

// False if the buffer is full, or ends with a body that is sent from the caller's memory.
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
        // Replies that arrived before the connection ended can still be read.
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

// False if nothing was received.
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

// The rest of the time limit for the next answer, rounded up; negative if there is no limit.
std::int64_t Exchange::leftMs() const {
    return answerMs == 0 ? -1 : std::max<std::int64_t>(since_ + answerMs + 1 - nowMs(), 0);
}

// Either the daemon refused the request answered_, or it ended. Asking that request again, alone, shows
// which. A connection that ended before the daemon read everything does not count as a refusal the first
// time: the daemon was about to end.
void Exchange::lost(bool wasRead) {
    connection_.close();
    isAlone_ = true;
    if (sent_ == 0 && !isFresh_) return;
    if (++attempts_ >= (wasRead ? 2U : 3U)) giveUp(KATCLIENT_CLOSED);
}

// Gives up the request answered_.
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
        std::snprintf(
            message_, sizeof message_,
            isControl()
                ? "no answer within %u.%03u seconds: the request may still be carried out, see katd's log"
                : "no answer within %u.%03u seconds: see katd's log, or wait longer",
            answerMs / 1000, answerMs % 1000);
    } else if (status == KATCLIENT_BAD_REPLY) {
        std::snprintf(message_, sizeof message_,
                      "what answers on %s is not katd: name the path of katd's socket", connection_.path());
    } else {
        fail(status, katclient_status_text(status));
    }
}

bool Exchange::isControl() const {
    return std::memcmp(requests_.prefix, KATD_SPACE::prefixControl, prefixSize) == 0;
}

std::size_t Exchange::lengthOf(std::size_t index) const {
    return requests_.lengths != nullptr ? requests_.lengths[index] : std::strlen(requests_.bodies[index]);
}

}  // namespace katclient_internal
