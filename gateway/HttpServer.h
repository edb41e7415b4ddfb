// The HTTP server: accepts connections, limits them in number and time, and hands requests to one handler.
#ifndef GATEWAY_HTTPSERVER_H
#define GATEWAY_HTTPSERVER_H

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "Listener.h"
#include "httplib.h"

namespace gateway {

struct HttpLimits {
    unsigned connections = 512;                // open at a time; more wait in the kernel's queue
    std::chrono::milliseconds request{10000};  // from the first byte of a request to its last
    std::chrono::milliseconds reply{10000};    // for sending a reply
    std::chrono::milliseconds idle{60000};     // between two requests of a connection
    std::size_t headBytes = 64 * 1024;         // of request line and headers together
    std::size_t bodyBytes = 4 * 1024 * 1024;
};

// httplib parses requests and formats replies. Connections are managed here, because httplib 0.11 cannot
// limit the total time of a request or the number of connections, and cannot use sockets from systemd. Each
// connection has a thread, so a slow client delays no other.
class HttpServer {
public:
    // Called by many threads at once. The body of a POST request has been read. If a request of another
    // method has a body, the connection is closed after the reply.
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    // Serves handlers[i] on listeners[i]. Takes ownership of the listeners. There may be more handlers than
    // listeners.
    HttpServer(const HttpLimits& limits, std::vector<Listener> listeners, std::vector<Handler> handlers);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Accepts connections until `stopDescriptor` is readable. Then waits for requests in progress, at most
    // limits.request + limits.reply.
    void run(int stopDescriptor);

    // Serves one connected socket in the calling thread until it ends, with the handler of that listener. The
    // caller keeps ownership of the socket.
    void serve(int socket, std::size_t listener);

private:
    class Connections;
    class Protocol;

    HttpLimits limits_;
    std::vector<Listener> listeners_;
    std::vector<std::unique_ptr<Protocol>> protocols_;  // one for each listener
    std::unique_ptr<Connections> connections_;
};

}  // namespace gateway

#endif
