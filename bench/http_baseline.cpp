// The server of katd-http, answering 204 to everything without asking katd. Prints its address.
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "HttpServer.h"

int main() {
    try {
        std::vector<gateway::Listener> listeners;
        listeners.emplace_back("127.0.0.1:0");
        std::fprintf(stderr, "listening on %s\n", listeners[0].name().c_str());
        gateway::HttpServer server(gateway::HttpLimits(), std::move(listeners),
                                   {[](const auto&, httplib::Response& response) { response.status = 204; }});
        int never[2];
        if (pipe(never) != 0) return 1;
        server.run(never[0]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
