// Listening sockets: TCP addresses, Unix sockets, and sockets that systemd passes.
#ifndef GATEWAY_LISTENER_H
#define GATEWAY_LISTENER_H

#include <string>
#include <vector>

namespace gateway {

// Owns one listening socket, non-blocking and close-on-exec. A Unix socket's path is removed with the object.
class Listener {
public:
    // `address` is "host:port", "[host]:port" or "unix:/path". A host name may resolve to one address alone:
    // the first is taken. A Unix socket is created with mode 0660 after a stale one, which refuses
    // connections, was removed. Throws std::runtime_error with a sentence.
    explicit Listener(const std::string& address);
    // Takes over a listening socket that another process opened.
    explicit Listener(int descriptor);
    ~Listener();
    Listener(Listener&& other) noexcept;
    Listener& operator=(Listener&&) = delete;

    int descriptor() const { return descriptor_; }
    // What a user types to reach it: "http://127.0.0.1:8480/" or "unix:/path".
    std::string name() const;

private:
    int descriptor_ = -1;
    std::string path_;  // of a Unix socket that the constructor created; else empty
};

// A socket of systemd's socket activation (sd_listen_fds(3)) with its FileDescriptorName; empty without a
// name.
struct PassedSocket {
    int descriptor;
    std::string name;
};

// Takes the passed sockets over and removes the variables from the environment. Call it once, before other
// threads run.
std::vector<PassedSocket> takePassedSockets();

}  // namespace gateway

#endif
