#include "UrlServer/UrlServerInstance.h"

#include <climits>
#include <cstring>
#include <new>

#include "KatdUtil/Utils.h"
#include "UrlServer/Classification.h"
#include "UrlServer/ControlRequests.h"
#include "UrlServer/Globals.h"
#include "UrlServer/UrlServer.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

bool hasPrefix(const char* message, const char* prefix) {
    return std::memcmp(message, prefix, prefixLength) == 0;
}

}  // namespace

UrlServerInstance::UrlServerInstance(int descriptor)
    : socket(descriptor), largeBuffer(nullptr), largeBufferSize(0), currentUrl(nullptr), stream(descriptor) {}

UrlServerInstance::~UrlServerInstance() {
    delete[] largeBuffer;
    largeBuffer = nullptr;
    largeBufferSize = 0;
}

int UrlServerInstance::start() {
    int result = 0;
    stream.readAhead();
    try {
        while (result >= 0)
            result = handleRequests();
    } catch (const std::bad_alloc&) {
        stream.send();
        ERR_MSG("In %s, fail to do strdup", "handleRequests");
        result = -1;
    }
    return result;
}

// A buffer for length bytes and a terminator, or null (reported).
char* UrlServerInstance::bufferFor(std::uint32_t length) {
    if (length < bufferSize) return buffer;
    if (largeBufferSize > length) return largeBuffer;
    delete[] largeBuffer;
    largeBufferSize = 0;
    largeBuffer = length <= maxMessage ? new (std::nothrow) char[length + 1] : nullptr;
    if (largeBuffer == nullptr) {
        ERR_MSG("fail to new char [%d]", static_cast<std::int32_t>(length + 1));
        return nullptr;
    }
    largeBufferSize = length + 1;
    return largeBuffer;
}

// Memory for a look-up while a message is served: what the message leaves of `buffer`, or a second buffer,
// which is kept. Null for messages in largeBuffer: a second buffer of up to 16 MiB is not worth keeping.
char* UrlServerInstance::lookUpWorkspace(std::size_t size) {
    if (messageLength >= bufferSize || size > bufferSize) return nullptr;
    if (size < bufferSize - messageLength) return buffer + messageLength + 1;
    if (longWorkspace == nullptr) longWorkspace.reset(new (std::nothrow) char[bufferSize]);
    return longWorkspace.get();
}

int UrlServerInstance::handleRequests() {
    if (socket < 0) {
        ERR_MSG("In %s, socket < 0", "handleRequests");
        return -1;
    }
    std::int32_t announced = 0;
    unsigned got = stream.readn(&announced, sizeof(announced));
    if (got < sizeof(announced)) {
        DBG_MSG("fail to read msg length from socket, ret[%d]", static_cast<int>(got));
        return -1;
    }
    if (announced <= 0) {
        ERR_MSG("bad url request, msglen [%d] <= 0", announced);
        return -1;
    }
    const std::uint32_t length = static_cast<std::uint32_t>(announced);
    char* message = bufferFor(length);
    if (message == nullptr) return -1;
    got = stream.readn(message, length);
    if (got < length) {
        ERR_MSG("fail to read msg from socket, msglen[%d], ret[%d]", announced, static_cast<int>(got));
        return -1;
    }
    message[length] = '\0';
    if (length <= prefixLength) {
        ERR_MSG("bad katd msg, length too short [%d]", announced);
        return -1;
    }

    messageLength = length;
    const char* body = message + prefixLength;
    unsigned char categories[maxCategories];
    ReplyHeader reply{};
    if (hasPrefix(message, prefixQuery)) {
        handleQuery(body, false, categories, &reply);
    } else if (hasPrefix(message, prefixRetriedQuery)) {
        handleQuery(body, true, categories, &reply);
    } else if (hasPrefix(message, prefixControl)) {
        handleCtrlRequest(body, length - prefixLength);
    } else {
        ERR_MSG("Unknown katd msg prefix [%s]", message);
        return -1;
    }
    return stream.reply(reply, categories) ? 0 : -1;
}

void UrlServerInstance::handleQuery(const char* url, bool withRetry, unsigned char* categories,
                                    ReplyHeader* reply) {
    bool matched = false;
    currentUrl = url;
    reply->length = classify(url, categories, maxCategories, withRetry, &matched);
    currentUrl = nullptr;
    reply->matched = matched ? 1 : 0;
    if (urlSvr != nullptr) urlSvr->handledRequest.store(true, std::memory_order_relaxed);
}

unsigned UrlServerInstance::classify(const char* url, unsigned char* categories, unsigned size,
                                     bool withRetry, bool* matched) {
    *matched = false;
    if (urlSvr == nullptr || urlSvr->sdkMain == nullptr || categories == nullptr || size == 0) return 0;
    if (urlSvr->urlManager.ready) {
        const std::size_t length = std::strlen(url);
        const Listed listed =
            lookUpLists(url, static_cast<unsigned>(length), lookUpWorkspace(length + 1), categories);
        if (listed == Listed::NO_MEMORY) {
            stream.send();  // the message may wait for the log
            ERR_MSG("In %s, fail to do strdup", "scanOneUrl");
            return 0;
        }
        if (listed == Listed::YES) {
            *matched = true;
            return 1;
        }
    }
    const bool mayWait = withRetry || !stream.expectsQuickCall();  // retries wait between their calls
    if (mayWait && !stream.send()) return 0;
    return askEngine(url, categories, size, withRetry, matched, stream);
}

unsigned UrlServerInstance::scanOneUrl(const char* url, unsigned char* categories, unsigned size,
                                       bool withRetry, bool* matched) {
    bool ignored = false;
    UrlServerInstance unconnected(-1);
    return unconnected.classify(url, categories, size, withRetry, matched != nullptr ? matched : &ignored);
}

void UrlServerInstance::handleCtrlRequest(const char* body) {
    carryOutControlRequest(body, UINT_MAX);
}

void UrlServerInstance::handleCtrlRequest(const char* body, unsigned length) {
    carryOutControlRequest(body, length);
}

}  // namespace KATD_SPACE
