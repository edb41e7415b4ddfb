#include "UrlServer/ConnectionBuffer.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

}  // namespace

unsigned ConnectionBuffer::readn(void* to, unsigned n) {
    char* const target = static_cast<char*>(to);
    unsigned held = inputEnd - inputStart;
    if (held < n && n <= inputSize && readsAhead) {
        std::memmove(input, input + inputStart, held);
        inputStart = 0;
        inputEnd = held = Utils::readAtLeast(socket, input, held, n, inputSize);
    }
    const unsigned taken = held < n ? held : n;
    std::memcpy(target, input + inputStart, taken);
    inputStart += taken;
    if (taken == n || (readsAhead && n <= inputSize)) return taken;
    return Utils::readAtLeast(socket, target, taken, n, n);
}

bool ConnectionBuffer::reply(const ReplyHeader& header, const unsigned char* categories) {
    if (broken) return false;
    std::memcpy(output + outputEnd, &header, sizeof(header));
    std::memcpy(output + outputEnd + sizeof(header), categories, header.length);
    outputEnd += static_cast<unsigned>(sizeof(header)) + header.length;
    if (outputEnd + largestReply <= outputSize && holdsWholeQuery() && !Utils::showsDebug()) return true;
    return send();
}

// Anything but a complete query waits or is refused: the replies before it are sent first.
bool ConnectionBuffer::holdsWholeQuery() const {
    const unsigned held = inputEnd - inputStart;
    const char* const request = input + inputStart;
    std::int32_t length = 0;
    if (held < sizeof(length) + prefixLength) return false;
    std::memcpy(&length, request, sizeof(length));
    const char* const prefix = request + sizeof(length);
    return length > static_cast<std::int32_t>(prefixLength) &&
           static_cast<std::uint32_t>(length) <= held - sizeof(length) &&
           (std::memcmp(prefix, prefixQuery, prefixLength) == 0 ||
            std::memcmp(prefix, prefixRetriedQuery, prefixLength) == 0);
}

bool ConnectionBuffer::send() {
    const unsigned sent = outputStart;
    const unsigned size = outputEnd - sent;
    outputStart = outputEnd = 0;
    sendDueMs = 0;
    unsigned out = 0;
    if (broken) return false;
    if (size == 0 || Utils::writen(socket, output + sent, size, &out) == size) return true;
    reportUnsent(sent + out);
    broken = true;
    return false;
}

std::int64_t ConnectionBuffer::beginCall(std::int64_t now) {
    if (quick && outputStart == outputEnd) return noCallDue;
    quick = true;
    if (sendDueMs == 0) sendDueMs = now + holdMs;
    return sendDueMs;
}

std::int64_t ConnectionBuffer::callIsSlow() {
    quick = false;
    sendDueMs = 0;
    if (outputStart == outputEnd) return noCallDue;
    const ssize_t out =
        ::send(socket, output + outputStart, outputEnd - outputStart, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (out < 0 && errno != EAGAIN) return noCallDue;
    if (out > 0) outputStart += static_cast<unsigned>(out);
    return outputStart != outputEnd ? Utils::nowMs() + resendMs : noCallDue;
}

bool ConnectionBuffer::waitForHangUp(std::uint32_t milliseconds) const {
    const std::int64_t endMs = Utils::nowMs() + milliseconds;
    std::int64_t leftMs = milliseconds;
    do {
        pollfd peer{socket, 0, 0};  // a hang-up is always reported
        if (poll(&peer, 1, leftMs < INT_MAX ? static_cast<int>(leftMs) : INT_MAX) > 0) return true;
        leftMs = endMs - Utils::nowMs();  // something is left after a signal, or of a long pause
    } while (leftMs > 0);
    return false;
}

void ConnectionBuffer::reportUnsent(unsigned out) const {
    for (const char* next = output;;) {
        ReplyHeader header;
        std::memcpy(&header, next, sizeof(header));
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
