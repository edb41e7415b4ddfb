// One entry of an input: a host or a URL as people write it, parsed and checked.
#ifndef LISTREADER_ENTRY_H
#define LISTREADER_ENTRY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace listreader {

// The longest entry in bytes: longer than any URL in use, and short enough to recognise a file of another
// kind.
constexpr std::size_t entryLimit = 65535;

enum class EntryKind {
    host,     // a name, perhaps with a port or user information; the path is empty or "/"
    address,  // the same, but an IPv4 or IPv6 address instead of a name
    network,  // "203.0.113.0/24" or "2001:db8::/32": a single text without a path
    url       // a host or an address with more behind it
};

// What the source says about the hosts below the host of an entry.
enum class Scope {
    unsaid,        // a plain line: what it means is up to the reader's user
    host,          // the host alone (hosts files, zone records)
    hostAndBelow,  // both (".a.example", "*.a.example", filter rules, local zones)
    below          // only what is below (zone records for "*.a.example")
};

struct Entry {
    // Without the scheme. The host is in lower case and ASCII: names in other scripts are converted (IDNA
    // 2008). The path is as written, neither decoded nor normalised. An entry in a list file of katd
    // (isStored) is decoded already.
    std::string text;
    std::size_t hostEnd = 0;  // bytes of `text` up to the first / ? or #; all for a network
    EntryKind kind = EntryKind::host;
    Scope scope = Scope::unsaid;
    bool isException = false;    // "not this one": overrides less specific entries of its category
    bool isStored = false;       // an item of a list file of katd
    bool hasAddress = false;     // the host is an address, whatever the kind
    bool isBareIpv6 = false;     // an IPv6 address without brackets
    std::int32_t category = -1;  // never negative when an entry is handed out
    std::uint64_t line = 0;      // counted from 1

    std::string_view host() const { return {text.data(), hostEnd}; }  // user information and port included
    std::string_view path() const { return std::string_view(text).substr(hostEnd); }
};

// Parses one entry as somebody wrote it, and sets everything but category, line, isException and isStored.
// Blanks at both ends are ignored; a leading "." or "*." sets the scope and is removed; a dot at the end of a
// host stays. Null if `written` is an entry, otherwise a phrase that says why it is not; *entry is
// unspecified then.
const char* parseEntry(std::string_view written, Entry* entry);

// The same for nearly all entries, much faster: names in lower case with nothing around them. False if `text`
// is something else, which may be an entry too.
bool parsePlainHost(std::string_view text, Entry* entry);

// False if this program was built without libidn2: hosts that are not ASCII are refused then.
bool convertsNames();

}  // namespace listreader

#endif
