// The baseline of katd: the system calls of an answer, without any look-up.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "Category.h"
#include "Fail.h"
#include "Options.h"
#include "Sockets.h"
#include "UrlServer/Protocol.h"
#include "asapsdk.h"

namespace bench {

namespace {

using KATD_SPACE::maxCategories;
using KATD_SPACE::prefixLength;
using KATD_SPACE::ReplyHeader;

constexpr unsigned inputSize = 4096;
constexpr unsigned LENGTH_SIZE = sizeof(std::int32_t);
constexpr std::size_t STACK_SIZE = 512 * 1024;  // as in katd

struct Server {
    ServerOptions options;
    void* engine = nullptr;
} server;

struct Reply {
    ReplyHeader header;
    unsigned char categories[maxCategories];
};
static_assert(sizeof(Reply) == sizeof(ReplyHeader) + maxCategories, "no gap between header and categories");

void answerFromEngine(const char* url, Reply* reply) {
    void* const answer = CSDKMain_ClassifyUrl(server.engine, url);
    const unsigned short* categories = nullptr;
    unsigned short count = 0;
    CSDKUrlCat_GetCategories(answer, &categories, &count);
    for (unsigned i = 0; i < count && i < maxCategories; ++i)
        reply->categories[reply->header.length++] = static_cast<unsigned char>(categories[i]);
    reply->header.matched = count > 0 || (CSDKUrlCat_GetFlags(answer) & ASAPSDK_FLAG_FINAL) != 0;
    CSDKUrlCat_Close(answer);
}

// REQUIRES: message ends with a zero byte.
void answer(const char* message, Reply* reply) {
    reply->header = {};
    if (server.options.asksEngine) return answerFromEngine(message + prefixLength, reply);
    reply->header.length = reply->header.matched = 1;
    reply->categories[0] = categoryOf(message + prefixLength + SCHEME_LENGTH);
}

bool sendReply(int fd, const Reply& reply) {
    const char* const bytes = reinterpret_cast<const char*>(&reply);
    if (server.options.writes == 1) return writeAll(fd, bytes, sizeof(ReplyHeader) + reply.header.length);
    return writeAll(fd, bytes, sizeof(ReplyHeader)) &&
           writeAll(fd, bytes + sizeof(ReplyHeader), reply.header.length);
}

// Lengths are only checked against the buffer: the clients are our own.
std::uint32_t lengthAt(const char* bytes) {
    std::uint32_t length = 0;
    memcpy(&length, bytes, sizeof(length));
    return length < inputSize - LENGTH_SIZE ? length : inputSize - LENGTH_SIZE - 1;
}

void serveWithTwoReads(int fd) {
    char message[inputSize];
    Reply reply;
    while (read(fd, message, LENGTH_SIZE) == LENGTH_SIZE) {
        const std::uint32_t length = lengthAt(message);
        if (recv(fd, message, length, MSG_WAITALL) != static_cast<ssize_t>(length)) return;
        message[length] = '\0';
        answer(message, &reply);
        if (!sendReply(fd, reply)) return;
    }
}

// Pipelined requests share a read and, with one write, the write too.
void serveWithOneRead(int fd) {
    char input[inputSize + 1];
    char output[inputSize];
    std::size_t end = 0;
    Reply reply;
    for (;;) {
        const ssize_t got = read(fd, input + end, inputSize - end);
        if (got <= 0) return;
        end += static_cast<std::size_t>(got);
        std::size_t begin = 0;
        std::size_t gathered = 0;
        while (end - begin >= LENGTH_SIZE && end - begin >= LENGTH_SIZE + lengthAt(input + begin)) {
            char* const message = input + begin + LENGTH_SIZE;
            char* const next = message + lengthAt(input + begin);
            const char kept = *next;
            *next = '\0';
            answer(message, &reply);
            *next = kept;
            begin = static_cast<std::size_t>(next - input);
            const std::size_t size = sizeof(ReplyHeader) + reply.header.length;
            if (server.options.writes == 2) {
                if (!sendReply(fd, reply)) return;
                continue;
            }
            if (gathered + size > sizeof(output)) {
                if (!writeAll(fd, output, gathered)) return;
                gathered = 0;
            }
            memcpy(output + gathered, &reply, size);
            gathered += size;
        }
        if (gathered > 0 && !writeAll(fd, output, gathered)) return;
        memmove(input, input + begin, end - begin);
        end -= begin;
    }
}

void* serve(void* argument) {
    const int fd = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
    if (server.options.asksEngine) CSDKThread_Attach();
    if (server.options.reads == 2) {
        serveWithTwoReads(fd);
    } else {
        serveWithOneRead(fd);
    }
    if (server.options.asksEngine) CSDKThread_Detach();
    close(fd);
    return nullptr;
}

void acceptAll() {
    const int listener = listenOn(server.options.socket);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, STACK_SIZE);
    for (;;) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) fail("cannot accept: %s", strerror(errno));
        pthread_t thread;
        const int error = pthread_create(&thread, &attributes, serve,
                                         reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
        if (error != 0) fail("no thread for a connection: %s", strerror(error));
    }
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    parse(argc, argv, &server.options);
    signal(SIGPIPE, SIG_IGN);
    if (server.options.asksEngine) {
        server.options.reads = server.options.writes = 1;
        server.engine = CSDKMain_Create("");
        if (server.engine == nullptr) fail("the engine cannot be made");
    }
    acceptAll();
}
