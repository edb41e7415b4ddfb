#include "UrlServer/ConnectionBuffer.h"

#include <poll.h>
#include <string.h>
#include <time.h>

#include <climits>

#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

std::int64_t nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

unsigned ConnectionBuffer::readn(void* to, unsigned n) {
    char* const target = static_cast<char*>(to);
    unsigned held = inputEnd_ - inputStart_;
    if (held < n && n <= inputSize && readsAhead_) {
        memmove(input_, input_ + inputStart_, held);
        inputStart_ = 0;
        inputEnd_ = held = Utils::readAtLeast(socket_, input_, held, n, inputSize);
    }
    const unsigned taken = held < n ? held : n;
    memcpy(target, input_ + inputStart_, taken);
    inputStart_ += taken;
    if (taken == n || (readsAhead_ && n <= inputSize)) return taken;
    return Utils::readAtLeast(socket_, target, taken, n, n);
}

bool ConnectionBuffer::reply(const ReplyHeader& header, const unsigned char* categories) {
    if (broken_) return false;
    memcpy(output_ + outputEnd_, &header, sizeof(header));
    memcpy(output_ + outputEnd_ + sizeof(header), categories, header.length);
    outputEnd_ += static_cast<unsigned>(sizeof(header)) + header.length;
    if (outputEnd_ + largestReply <= outputSize && holdsWholeQuery()) return true;
    return send();
}

// Anything but a query, whole, in a well-formed message, waits or is refused: the replies before it go out
// first.
bool ConnectionBuffer::holdsWholeQuery() const {
    const unsigned held = inputEnd_ - inputStart_;
    const char* const request = input_ + inputStart_;
    std::int32_t length = 0;
    if (held < sizeof(length) + prefixLength) return false;
    memcpy(&length, request, sizeof(length));
    const char* const prefix = request + sizeof(length);
    return length > static_cast<std::int32_t>(prefixLength) &&
           static_cast<std::uint32_t>(length) <= held - sizeof(length) &&
           (memcmp(prefix, prefixQuery, prefixLength) == 0 ||
            memcmp(prefix, prefixRetriedQuery, prefixLength) == 0);
}

bool ConnectionBuffer::send() {
    const unsigned size = outputEnd_;
    outputEnd_ = 0;
    unsigned out = 0;
    if (broken_) return false;
    if (size == 0 || Utils::writen(socket_, output_, size, &out) == size) return true;
    reportUnsent(out);
    broken_ = true;
    return false;
}

bool ConnectionBuffer::waitForHangUp(std::uint32_t milliseconds) const {
    const std::int64_t endMs = nowMs() + milliseconds;
    std::int64_t leftMs = milliseconds;
    do {
        pollfd peer{socket_, 0, 0};  // a hang-up is always reported
        if (poll(&peer, 1, leftMs < INT_MAX ? static_cast<int>(leftMs) : INT_MAX) > 0) return true;
        leftMs = endMs - nowMs();  // something is left after a signal, or of a long pause
    } while (leftMs > 0);
    return false;
}

void ConnectionBuffer::reportUnsent(unsigned out) const {
    for (const char* next = output_;;) {
        ReplyHeader header;
        memcpy(&header, next, sizeof(header));
        if (out < sizeof(header)) {
            ERR_MSG("fail to send the url query result to katc, ret[%d]", 0);
            return;
        }
        out -= static_cast<unsigned>(sizeof(header));
        if (out < header.length) {
            ERR_MSG("fail to send the url query categories to katc, ret[%d]", 0);
            return;
        }
        out -= header.length;
        next += sizeof(header) + header.length;
    }
}

}  // namespace KATD_SPACE
