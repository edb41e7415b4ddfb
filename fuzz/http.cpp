// Requests to katd-http as a client could send them, with a katd that is not there, and what katc says of a
// URL. Input: the bytes of a connection, or of katc's output.
#include <sys/socket.h>

#include "Explanation.h"
#include "Fuzz.h"
#include "HttpServer.h"
#include "Service.h"
#include "Settings.h"

using namespace katd_fuzz;
using gateway::HttpServer;

namespace {

// A failure refuses, so that the block page is written too.
constexpr char settings[] =
    "[katd-http]\nsocket = /nonexistent\nanswer_timeout = 1\npolicies = n, t, e\n"
    "[policy n]\nproxy = nginx\nblock = 1\non_failure = block\nblock_page = http://x/blocked\n"
    "[policy t]\nproxy = traefik\nblock = 1\non_failure = block\n"
    "[policy e]\nproxy = envoy\nblock = 1\non_failure = pass\n";

gateway::Service& service() {
    setenv("PATH", "/nonexistent", 1);  // no katc
    static const InputFile file(settings);
    static gateway::Service instance(gateway::readSettings(file.path(), "/"),
                                     gateway::readRules(file.path(), "/"));
    return instance;
}

void requireNoForeignElement(const std::string& html) {
    REQUIRE(html.find("<script>") == std::string::npos);
    REQUIRE(html.find("<img") == std::string::npos);
}

bool isPrintable(char c) {
    return c == '\t' || (c >= ' ' && c != 0x7f);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static HttpServer server(gateway::HttpLimits(), std::vector<gateway::Listener>(),
                             {[](const auto& request, auto& response) {
                                 service().answerAll(request, response);
                                 // Nothing of a request may end a header line.
                                 for (const auto& [name, value] : response.headers) {
                                     for (const char c : name + value)
                                         REQUIRE(isPrintable(c));
                                 }
                                 const bool isPage = response.body.compare(0, 15, "<!DOCTYPE html>") == 0;
                                 if (isPage) {
                                     // The page's own script and style, and no element of the request.
                                     requireNoForeignElement(response.body);
                                     REQUIRE(response.has_header("Content-Security-Policy"));
                                 }
                             }});
    requireNoForeignElement(gateway::explanationHtml(std::string(reinterpret_cast<const char*>(data), size),
                                                     katclient_answer{}, tools::CategoryNames()));
    int sockets[2];
    if (size > 100000 || socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) return 0;
    const int bufferSize = 8 << 20;  // holds all replies, which are not read
    setsockopt(sockets[1], SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof bufferSize);
    setsockopt(sockets[0], SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof bufferSize);
    REQUIRE(size == 0 || send(sockets[0], data, size, 0) == static_cast<ssize_t>(size));
    shutdown(sockets[0], SHUT_WR);
    server.serve(sockets[1], 0);
    close(sockets[0]);
    close(sockets[1]);
    return 0;
}
