#include "listreader/Entry.h"

#include <arpa/inet.h>
#ifdef KATD_HAVE_IDN2
#include <idn2.h>
#endif

#include <algorithm>
#include <charconv>
#include <new>

#include "Text.h"

namespace listreader {

namespace {

// Bytes that no host, port or user information contains, but lines that are not URLs do.
constexpr std::string_view notInUrlHost = "\"<>\\^`{}|";
// Without a path behind it, a host contains none of these either.
constexpr std::string_view notInHost = "\"<>\\^`{}|&=;,!$'()+~%";

// What std::string_view::find_first_of looks for, in one step per byte.
class ByteSet {
public:
    explicit constexpr ByteSet(std::string_view bytes) {
        for (const char c : bytes)
            has_[static_cast<unsigned char>(c)] = true;
    }
    bool has(char c) const { return has_[static_cast<unsigned char>(c)]; }
    bool isIn(std::string_view text) const {
        return std::any_of(text.begin(), text.end(), [this](char c) { return has(c); });
    }

private:
    bool has_[256] = {};
};
constexpr ByteSet urlHostSet(notInUrlHost);
constexpr ByteSet hostSet(notInHost);

constexpr ByteSet plainSet("abcdefghijklmnopqrstuvwxyz0123456789-_.");

constexpr const char* notAHost = "it is not a host or URL";

bool isAddressOf(int family, std::string_view text) {
    char copy[INET6_ADDRSTRLEN];
    if (text.size() >= sizeof copy) return false;
    copy[text.copy(copy, sizeof copy - 1)] = '\0';
    in6_addr address;
    return inet_pton(family, copy, &address) == 1;
}

bool isIpv4(std::string_view text) {
    return !text.empty() && isDigit(text[0]) && isAddressOf(AF_INET, text);
}

bool isIpv6(std::string_view text) {
    return text.find(':') != text.npos && isAddressOf(AF_INET6, text);
}

bool isNumber(std::string_view text, unsigned most) {
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number <= most;
}

// "203.0.113.0/24". The same text could be a URL; with a scheme in front it is one.
bool isNetwork(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == text.npos) return false;
    const std::string_view address = text.substr(0, slash);
    const std::string_view bits = text.substr(slash + 1);
    return (isIpv4(address) && isNumber(bits, 32)) || (isIpv6(address) && isNumber(bits, 128));
}

// "192.0.2.1-192.0.2.9" or "192.0.2.1-9".
bool isRange(std::string_view host) {
    const std::size_t dash = host.find('-');
    if (dash == host.npos) return false;
    const std::string_view first = host.substr(0, dash);
    const std::string_view last = host.substr(dash + 1);
    return (isIpv4(first) && (isIpv4(last) || isNumber(last, 255))) || (isIpv6(first) && isIpv6(last));
}

const char* checkPort(std::string_view port) {
    if (port.empty()) return "there is no port behind the colon";
    if (port.find_first_not_of("0123456789") != port.npos) return "its port is not a number";
    return isNumber(port, 65535) ? nullptr : "its port is above 65535";
}

#ifdef KATD_HAVE_IDN2
// Replaces the bytes of *text from `begin` to `end` by the ASCII form of the name.
const char* toAscii(std::string* text, std::size_t begin, std::size_t end) {
    const std::string name = text->substr(begin, end - begin);
    char* ascii = nullptr;
    const int result = idn2_to_ascii_8z(name.c_str(), &ascii, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
    if (result == IDN2_MALLOC) throw std::bad_alloc();
    if (result != IDN2_OK) return "cannot convert its host to ASCII: it is not a valid international name";
    text->replace(begin, end - begin, ascii);
    idn2_free(ascii);
    return nullptr;
}
#else
const char* toAscii(std::string*, std::size_t, std::size_t) {
    return "cannot convert its host to ASCII: this program was built without libidn2";
}
#endif

// The name between user information and port.
const char* checkName(std::string_view name, bool isUrl) {
    if (name.find('*') != name.npos) return "wildcards within a name are not supported";
    bool hasWordCharacter = false;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7f) return notAHost;
        hasWordCharacter = hasWordCharacter || isDigit(c) || (c >= 'a' && c <= 'z');
    }
    if (!hasWordCharacter || (isUrl ? urlHostSet : hostSet).isIn(name)) return notAHost;
    if (name.front() == '.' || name.find("..") != name.npos) return "its host has an empty label";
    if (isRange(name)) return "it is a range of addresses: list the addresses one by one";
    return nullptr;
}

// Checks and converts the host part, *text up to entry->hostEnd.
const char* parseHost(Entry* entry, bool isUrl) {
    std::string& text = entry->text;
    const std::string_view whole = entry->host();
    if (whole.find_first_of(" \t") != whole.npos) return "there is a blank in the host";
    const std::size_t at = whole.rfind('@');
    const std::size_t begin = at == whole.npos ? 0 : at + 1;
    const std::string_view host = whole.substr(begin);
    if (host.empty()) return "it has no host";
    if (begin > 0 && whole.find_first_of(notInUrlHost) < begin) return notAHost;

    bool isAddress = false;
    std::size_t nameEnd = host.size();
    if (host[0] == '[') {
        const std::size_t bracket = host.find(']');
        if (bracket == host.npos || !isIpv6(host.substr(1, bracket - 1)))
            return "there is no IPv6 address in the brackets";
        nameEnd = bracket + 1;
        if (nameEnd < host.size() && host[nameEnd] != ':') return notAHost;
        isAddress = true;
    } else if (isIpv6(host)) {
        isAddress = entry->isBareIpv6 = true;
    } else {
        nameEnd = std::min(host.find(':'), host.size());
        if (nameEnd == 0) return "it has no host";
    }
    if (nameEnd < host.size()) {
        if (const char* reason = checkPort(host.substr(nameEnd + 1))) return reason;
    }
    if (!isAddress) {
        const std::string_view name = host.substr(0, nameEnd);
        if (std::any_of(name.begin(), name.end(), [](char c) { return (c & '\x80') != 0; })) {
            const std::size_t before = text.size();
            if (const char* reason = toAscii(&text, begin, begin + nameEnd)) return reason;
            entry->hostEnd = entry->hostEnd + text.size() - before;
            nameEnd = nameEnd + text.size() - before;
        }
        const std::string_view converted(text.data() + begin, nameEnd);
        if (const char* reason = checkName(converted, isUrl)) return reason;
        isAddress = isIpv4(converted);
    }
    entry->hasAddress = isAddress;
    entry->kind = isUrl ? EntryKind::url : isAddress ? EntryKind::address : EntryKind::host;
    return nullptr;
}

}  // namespace

bool parsePlainHost(std::string_view text, Entry* entry) {
    if (text.empty() || text.size() > entryLimit || text[0] == '.') return false;
    bool hasLetter = false;  // without one it could be an address, or a range of them
    char before = '\0';
    for (const char c : text) {
        if (!plainSet.has(c) || (c == '.' && before == '.')) return false;
        hasLetter = hasLetter || c >= 'a';
        before = c;
    }
    if (!hasLetter) return false;
    entry->text.assign(text);
    entry->hostEnd = text.size();
    entry->kind = EntryKind::host;
    entry->scope = Scope::unsaid;
    entry->hasAddress = false;
    entry->isBareIpv6 = false;
    return true;
}

const char* parseEntry(std::string_view written, Entry* entry) {
    if (parsePlainHost(written, entry)) return nullptr;
    std::string_view text = trimmed(written);
    if (text.size() > entryLimit) return "it is longer than 65535 bytes";
    entry->scope = Scope::unsaid;
    entry->isBareIpv6 = false;
    const std::string_view rest = withoutScheme(text);
    if (rest.size() == text.size() && isNetwork(text)) {
        entry->text.assign(text);
        lower(entry->text.data(), entry->text.size());
        entry->hostEnd = text.size();
        entry->kind = EntryKind::network;
        entry->hasAddress = true;
        return nullptr;
    }
    text = rest;
    if (text.empty()) return "nothing is left of it";
    for (const std::string_view mark : {"*.", "."}) {
        if (text.substr(0, mark.size()) != mark || text.size() == mark.size()) continue;
        entry->scope = Scope::hostAndBelow;
        text.remove_prefix(mark.size());
        break;
    }
    entry->text.assign(text);
    entry->hostEnd = std::min(text.find_first_of("/?#"), text.size());
    lower(entry->text.data(), entry->hostEnd);
    const std::string_view path = text.substr(entry->hostEnd);
    return parseHost(entry, !path.empty() && path != "/");
}

bool convertsNames() {
#ifdef KATD_HAVE_IDN2
    return true;
#else
    return false;
#endif
}

}  // namespace listreader
