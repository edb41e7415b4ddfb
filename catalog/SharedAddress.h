// The address of a shared store, as a setting or an argument has it.
#ifndef KATD_CATALOG_SHAREDADDRESS_H
#define KATD_CATALOG_SHAREDADDRESS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace catalog {

struct SharedAddress {
    struct Host {
        std::string name;  // or the path of a Unix socket, which begins with a slash
        std::uint16_t port = 6379;

        bool isSocket() const { return name[0] == '/'; }
        // For messages: "store.example:6379", "[2001:db8::1]:6379", "/run/redis/redis.sock".
        std::string text() const;
    };

    std::vector<Host> hosts;  // at least one
    std::string user;         // empty: redis' default user
    std::string password;
};

// Parses "redis://[[USER][:PASSWORD]@]HOST[:PORT][,...]", where a HOST may be the path of a Unix socket. The
// user ends at the first colon, the password at the last @ of the text. Null on success; otherwise a phrase
// that says why it failed, and *address is unspecified.
const char* readSharedAddress(std::string_view text, SharedAddress* address);

}  // namespace catalog

#endif
