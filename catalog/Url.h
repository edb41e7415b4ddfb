// URLs in the one form that the catalogue compares.
#ifndef KATD_CATALOG_URL_H
#define KATD_CATALOG_URL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace catalog {

// What a URL or an entry names. Spellings that lead to the same place give the same value: letter case, user
// information, a dot at the end of the host, escapes, repeated slashes and dot segments make no difference,
// and both spellings of an internationalised name are one (where the build has libidn2).
//
// Reuse one object for many URLs: its buffers keep their capacity.
struct Url {
    enum Kind : unsigned char { name, ipv4, ipv6 };

    Kind kind = name;
    // A name: its labels from the last to the first with a zero byte between ("example\0www"). An address:
    // its 4 or 16 bytes in network order. An IPv6 address that maps an IPv4 one is that IPv4 address.
    std::string host;
    // Empty, or "/" and segments, and "?" and the query if there is one. No slash at the end of the segments.
    // Letters are small, escapes are decoded except those of bytes that would mean something else then.
    std::string path;
    // The port in the text, else that of the scheme (http where there is none); 0: not known.
    std::uint16_t port = 0;
    bool portGiven = false;
    // Of an entry: the length of the network's prefix in bits; otherwise all bits of the address.
    unsigned char prefix = 0;
};

// Reads the text of a URL; a scheme may be missing, and "host:443" is a host with a port. Null on success,
// else the reason in a few words, and `url` holds nothing of use. Never throws anything but bad_alloc.
const char* readUrl(std::string_view text, Url* url);

// Reads an entry: what readUrl takes, and networks ("203.0.113.0/24", "2001:db8::/32"). A network has no bit
// set behind its prefix; "203.0.113.7/24" is a path of an address. The port counts if the text has one.
const char* readEntry(std::string_view text, Url* entry);

// A host's key as people write it: "www.example", "203.0.113.7", "2001:db8::1".
std::string hostText(Url::Kind kind, std::string_view host);

// Sets the bits behind the prefix to zero. REQUIRES: prefix is at most 8 * size.
void maskAddress(char* address, std::size_t size, unsigned prefix);

}  // namespace catalog

#endif
