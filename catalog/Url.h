// URLs in the normal form that the catalogue compares.
#ifndef KATD_CATALOG_URL_H
#define KATD_CATALOG_URL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace catalog {

// A normalised URL or entry. Letter case, user information, a dot at the end of the host, escapes, repeated
// slashes and dot segments make no difference. Nor does the spelling of an internationalised name, Unicode or
// A-labels, if the build has libidn2.
//
// Reuse one object for many URLs: its buffers keep their capacity.
struct Url {
    enum Kind : unsigned char { name, ipv4, ipv6 };

    Kind kind = name;
    // A name: its labels in reverse order, separated by zero bytes ("example\0www"). An address: its 4 or 16
    // bytes in network order. An IPv4-mapped IPv6 address becomes the IPv4 address.
    std::string host;
    // The segments, each with "/" before it, then "?" and the query if there is one; may be empty. No slash
    // after the last segment. Lower case. Escapes are decoded, except those of delimiters such as %2F.
    std::string path;
    // The port of the URL, else the default port of its scheme (http if there is none); 0: unknown.
    std::uint16_t port = 0;
    bool portGiven = false;
    // Prefix length of a network, in bits; for a single address, the size of the address.
    unsigned char prefix = 0;
};

// Parses a URL. The scheme is optional; "host:443" is a host with a port. Null on success; otherwise a phrase
// that says why it failed, and *url is unspecified. Throws only std::bad_alloc.
const char* readUrl(std::string_view text, Url* url);

// Parses an entry: a URL as above, or a network ("203.0.113.0/24", "2001:db8::/32"). In a network no bit
// after the prefix is set: "203.0.113.7/24" is an address with a path. A port belongs to the entry only if
// written.
const char* readEntry(std::string_view text, Url* entry);

// The host in its usual form: "www.example", "203.0.113.7", "2001:db8::1".
std::string hostText(Url::Kind kind, std::string_view host);

// Clears the bits after the prefix. REQUIRES: prefix is at most 8 * size.
void maskAddress(char* address, std::size_t size, unsigned prefix);

}  // namespace catalog

#endif
