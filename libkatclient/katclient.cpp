// The functions of katclient.h.
#include "katclient.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Exchange.h"
#include "UrlServer/Protocol.h"

using katclient_internal::Exchange;
using katclient_internal::Requests;

struct katclient {
    explicit katclient(const sockaddr_un& address) : exchange(address) {}

    Exchange exchange;
};

namespace {

int control(katclient* client, const char* keyword, const uint32_t* operands, std::size_t count) {
    char body[32];
    const std::size_t keywordSize = std::strlen(keyword);
    std::copy_n(keyword, keywordSize, body);
    if (count != 0) std::memcpy(body + keywordSize, operands, count * sizeof *operands);
    const char* const bodies[] = {body};
    const std::size_t lengths[] = {keywordSize + count * sizeof *operands};
    katclient_answer answer;
    return client->exchange.run(Requests{KATD_SPACE::prefixControl, bodies, lengths, 1}, &answer);
}

}  // namespace

int katclient_open(const char* socket_path, katclient** client) {
    *client = nullptr;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_path == nullptr || *socket_path == '\0' || std::strlen(socket_path) >= sizeof address.sun_path)
        return KATCLIENT_BAD_ARGUMENT;
    std::memcpy(address.sun_path, socket_path, std::strlen(socket_path));
    void* const memory = std::malloc(sizeof(katclient));
    if (memory == nullptr) return KATCLIENT_NO_MEMORY;
    *client = new (memory) katclient(address);
    return KATCLIENT_OK;
}

void katclient_close(katclient* client) {
    if (client == nullptr) return;
    client->~katclient();
    std::free(client);
}

void katclient_set_limits(katclient* client, unsigned connect_ms, unsigned answer_ms) {
    client->exchange.connectMs = connect_ms;
    client->exchange.answerMs = answer_ms;
}

int katclient_connect(katclient* client) {
    return client->exchange.connect();
}

int katclient_ask(katclient* client, const char* url, unsigned flags, katclient_answer* answer) {
    return katclient_ask_many(client, &url, nullptr, 1, flags, answer);
}

int katclient_ask_many(katclient* client, const char* const* urls, const size_t* lengths, size_t count,
                       unsigned flags, katclient_answer* answers) {
    const char* const prefix =
        (flags & KATCLIENT_RETRY) != 0 ? KATD_SPACE::prefixRetriedQuery : KATD_SPACE::prefixQuery;
    return client->exchange.run(Requests{prefix, urls, lengths, count}, answers);
}

int katclient_log_level(katclient* client, enum katclient_level level) {
    const auto number = static_cast<uint32_t>(level);
    if (number > KATCLIENT_LEVEL_DEBUG)
        return client->exchange.fail(KATCLIENT_BAD_ARGUMENT, "a message level is a number from 0 to 3");
    return control(client, KATD_SPACE::controlLogLevel, &number, 1);
}

int katclient_retry_times(katclient* client, uint32_t times, uint32_t interval_ms) {
    const uint32_t operands[] = {times, interval_ms};
    return control(client, KATD_SPACE::controlTimeout, operands, 2);
}

int katclient_save_cache(katclient* client) {
    return control(client, KATD_SPACE::controlSaveCache, nullptr, 0);
}

int katclient_urls_stat(katclient* client) {
    return control(client, KATD_SPACE::controlUrlsStat, nullptr, 0);
}

int katclient_reload(katclient* client) {
    return control(client, KATD_SPACE::controlReload, nullptr, 0);
}

const char* katclient_message(const katclient* client) {
    return client->exchange.message();
}

const char* katclient_status_text(int status) {
    switch (status) {
        case KATCLIENT_OK:
            return "";
        case KATCLIENT_NO_DAEMON:
            return "no daemon answers on the socket: start katd, or name the path of its socket";
        case KATCLIENT_CLOSED:
            return "the daemon closed the connection: its log says why";
        case KATCLIENT_TIMED_OUT:
            return "no answer within the time limit: see katd's log, or wait longer";
        case KATCLIENT_BAD_REPLY:
            return "what answers is not katd: name the path of katd's socket";
        case KATCLIENT_BAD_ARGUMENT:
            return "a URL must have 1 byte to 16 MiB and no zero byte, the path of a socket 1 to 107 bytes";
        case KATCLIENT_NO_MEMORY:
            return "there is not enough memory: free some and ask again";
        default:
            return "an unknown status";
    }
}

const char* katclient_version(void) {
    return KATCLIENT_VERSION;
}
