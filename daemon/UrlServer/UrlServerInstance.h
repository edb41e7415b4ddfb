#ifndef KATD_URLSERVERINSTANCE_H
#define KATD_URLSERVERINSTANCE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "UrlServer/ConnectionBuffer.h"

namespace KATD_SPACE {

// One client connection, served by one thread, to which all operations belong. Does not own the socket.
class UrlServerInstance {
public:
    explicit UrlServerInstance(int descriptor);
    ~UrlServerInstance();
    UrlServerInstance(const UrlServerInstance&) = delete;
    UrlServerInstance& operator=(const UrlServerInstance&) = delete;

    // Serves requests until one fails; returns that negative result.
    int start();

    // Serves one request. 0: its reply has been sent, or is held back for the next one. -1 (reported): the
    // connection is over. May throw std::bad_alloc.
    int handleRequests();

    // Carries out a control request (carryOutControlRequest). Without a length the operands count as
    // complete.
    void handleCtrlRequest(const char* body);
    void handleCtrlRequest(const char* body, unsigned length);

    // The URL that is being classified right now, or null.
    const char* getCurrentUrl() { return currentUrl; }

    // Finds the categories of url in the local lists or with the engine; returns the number of bytes stored,
    // 0 to size. withRetry: while the engine's Unknown is not final, ask again as configured. matched (may be
    // null): whether the answer is definitive. For any thread that is attached to the engine.
    static unsigned scanOneUrl(const char* url, unsigned char* categories, unsigned size, bool withRetry,
                               bool* matched);

    static constexpr unsigned bufferSize = 4096;
    // A longer message is refused as if there were no memory for it.
    static constexpr unsigned maxMessage = 16 * 1024 * 1024;

    std::int32_t socket;            // the accepted connection
    char* largeBuffer;              // for messages of bufferSize bytes or more; owned, null when absent, kept
    std::uint32_t largeBufferSize;  // its capacity in bytes
    const char* currentUrl;         // non-null exactly while it is being classified
    char buffer[bufferSize];        // for shorter messages

private:
    char* bufferFor(std::uint32_t length);
    void handleQuery(const char* url, bool withRetry, unsigned char* categories, ReplyHeader* reply);
    // scanOneUrl for this connection: the replies held back are sent before the engine is asked, unless its
    // answer is expected at once, and the retries end when the client hangs up.
    unsigned classify(const char* url, unsigned char* categories, unsigned size, bool withRetry,
                      bool* matched);
    char* lookUpWorkspace(std::size_t size);

    std::uint32_t messageLength = 0;        // of the message being served
    std::unique_ptr<char[]> longWorkspace;  // bufferSize bytes; null until a URL needed it
    ConnectionBuffer stream;                // what is read from and written to `socket`
};

}  // namespace KATD_SPACE

#endif
