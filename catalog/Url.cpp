#include "Url.h"

#include <arpa/inet.h>

#include <array>
#include <charconv>
#include <cstring>

#ifdef KATD_HAVE_IDN2
#include <idn2.h>
#endif

namespace catalog {

namespace {

constexpr std::size_t maxHost = 253;
constexpr std::size_t maxLabel = 63;

enum Class : unsigned char { plain, upper, slash, question, hash, percent, skipped, escaped };

// The classes of bytes that readPath() distinguishes.
constexpr std::array<unsigned char, 256> makeClasses() {
    std::array<unsigned char, 256> classes{};
    for (unsigned c = 0; c <= 0x20; ++c)
        classes[c] = escaped;
    classes[0x7f] = escaped;
    for (unsigned c = 'A'; c <= 'Z'; ++c)
        classes[c] = upper;
    for (const char c : {'\t', '\r', '\n'})
        classes[static_cast<unsigned char>(c)] = skipped;  // browsers drop these anywhere
    classes['/'] = classes['\\'] = slash;
    classes['?'] = question;
    classes['#'] = hash;
    classes['%'] = percent;
    return classes;
}
constexpr std::array<unsigned char, 256> classOf = makeClasses();

// Bytes that a host cannot contain.
constexpr std::array<bool, 256> makeForbidden() {
    std::array<bool, 256> forbidden{};
    for (unsigned c = 0; c <= 0x20; ++c)
        forbidden[c] = true;
    for (const char c :
         {'"', '#', '%', '/', ':', '<', '>', '?', '@', '[', '\\', ']', '^', '`', '{', '|', '}', '\x7f'})
        forbidden[static_cast<unsigned char>(c)] = true;
    return forbidden;
}
constexpr std::array<bool, 256> isForbidden = makeForbidden();

// Bytes of a name that is in its normal form already, except the dot.
constexpr std::array<bool, 256> makePlain() {
    std::array<bool, 256> isIn{};
    for (const char c : {'-', '_'})
        isIn[static_cast<unsigned char>(c)] = true;
    for (unsigned c = '0'; c <= '9'; ++c)
        isIn[c] = true;
    for (unsigned c = 'a'; c <= 'z'; ++c)
        isIn[c] = true;
    return isIn;
}
constexpr std::array<bool, 256> isPlain = makePlain();

constexpr char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

constexpr int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = toLower(c);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// The value of the escape that `text` begins with, or -1.
int escapeAt(std::string_view text) {
    if (text.size() < 3 || text[0] != '%') return -1;
    const int high = hexValue(text[1]);
    const int low = hexValue(text[2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

void appendEscape(unsigned char byte, std::string* out) {
    constexpr char digits[] = "0123456789abcdef";
    const char escape[] = {'%', digits[byte >> 4U], digits[byte & 15U]};
    out->append(escape, 3);
}

// Whether decoding this byte's escape would change the meaning of the URL.
bool staysEscaped(unsigned char byte) {
    switch (byte) {
        case '/':
        case '\\':
        case '?':
        case '#':
        case '%':
        case '&':
        case '=':
        case '+':
            return true;
        default:
            return byte <= 0x20 || byte == 0x7f;
    }
}

// Ends the segment whose slash is at `start`: "." and empty segments are removed, ".." with its parent.
void endSegment(std::size_t start, std::string* out) {
    const std::string_view segment(out->data() + start + 1, out->size() - start - 1);
    if (segment.empty() || segment == ".") {
        out->resize(start);
    } else if (segment == "..") {
        out->resize(start);
        const auto parent = out->rfind('/');
        out->resize(parent == out->npos ? 0 : parent);
    }
}

// Normalises everything after the authority.
void readPath(std::string_view text, std::string* out) {
    out->clear();
    bool query = false;
    std::size_t start = std::string::npos;  // of the current segment
    std::size_t i = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        switch (classOf[static_cast<unsigned char>(c)]) {
            case plain:
                out->push_back(c);
                break;
            case upper:
                out->push_back(toLower(c));
                break;
            case slash:
                if (query) {
                    out->push_back(c);
                    break;
                }
                if (start != out->npos) endSegment(start, out);
                start = out->size();
                out->push_back('/');
                break;
            case question:
                if (!query && start != out->npos) endSegment(start, out);
                query = true;
                out->push_back('?');
                break;
            case hash:
                text = text.substr(0, i);
                break;
            case percent: {
                const int byte = escapeAt(text.substr(i));
                if (byte < 0) {
                    appendEscape('%', out);
                    break;
                }
                i += 2;
                if (staysEscaped(static_cast<unsigned char>(byte))) {
                    appendEscape(static_cast<unsigned char>(byte), out);
                } else {
                    out->push_back(toLower(static_cast<char>(byte)));
                }
                break;
            }
            case skipped:
                break;
            default:
                appendEscape(static_cast<unsigned char>(c), out);
        }
    }
    if (!query && start != out->npos) endSegment(start, out);
    if (query && out->back() == '?' && out->find('?') == out->size() - 1) out->pop_back();
}

// One part of an IPv4 address as browsers read it: decimal, hexadecimal after 0x, octal after 0.
bool readPart(std::string_view text, std::uint64_t* value) {
    int base = 10;
    if (text.size() >= 2 && text[0] == '0' && text[1] == 'x') {
        base = 16;
        text.remove_prefix(2);
        *value = 0;
        if (text.empty()) return true;
    } else if (text.size() >= 2 && text[0] == '0') {
        base = 8;
    }
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value, base);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool isNumber(std::string_view label) {
    if (label.size() >= 2 && label[0] == '0' && label[1] == 'x')
        return label.find_first_not_of("0123456789abcdef", 2) == label.npos;
    return label.find_first_not_of("0123456789") == label.npos;
}

void setIpv4(std::uint32_t address, Url* url) {
    url->kind = Url::ipv4;
    url->prefix = 32;
    url->host.clear();
    for (int shift = 24; shift >= 0; shift -= 8)
        url->host.push_back(static_cast<char>(address >> static_cast<unsigned>(shift)));
}

// "1.2.3.4", "0x7f.1", "2130706433": up to four parts, the last of which fills the remaining bytes.
bool readIpv4(std::string_view host, Url* url) {
    std::uint64_t address = 0;
    for (unsigned parts = 1;; ++parts) {
        const auto dot = host.find('.');
        std::uint64_t part = 0;
        if (parts > 4 || !readPart(host.substr(0, dot), &part)) return false;
        if (dot == host.npos) {
            if (part >= std::uint64_t{1} << (8U * (5U - parts))) return false;
            setIpv4(static_cast<std::uint32_t>(address | part), url);
            return true;
        }
        if (part > 255) return false;
        address |= part << (8U * (4U - parts));
        host.remove_prefix(dot + 1);
    }
}

bool readIpv6(std::string_view host, Url* url) {
    host = host.substr(0, host.find('%'));  // a zone has a meaning on one machine only
    char text[INET6_ADDRSTRLEN];
    if (host.size() >= sizeof text || host.find('\0') != host.npos) return false;
    std::memcpy(text, host.data(), host.size());
    text[host.size()] = '\0';
    unsigned char address[16];
    if (inet_pton(AF_INET6, text, address) != 1) return false;
    constexpr unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    const auto* const bytes = reinterpret_cast<const char*>(address);
    if (std::memcmp(address, mapped, sizeof mapped) == 0) {
        url->kind = Url::ipv4;
        url->prefix = 32;
        url->host.assign(bytes + 12, 4);
    } else {
        url->kind = Url::ipv6;
        url->prefix = 128;
        url->host.assign(bytes, 16);
    }
    return true;
}

// Decodes escapes and converts a name with non-ASCII bytes to its A-labels.
std::string unusualHost(std::string_view text) {
    std::string host;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int byte = escapeAt(text.substr(i));
        if (byte >= 0) i += 2;
        host.push_back(byte >= 0 ? static_cast<char>(byte) : text[i]);
    }
#ifdef KATD_HAVE_IDN2
    bool ascii = true;
    for (const char c : host)
        ascii = ascii && static_cast<signed char>(c) >= 0;
    char* name = nullptr;
    if (!ascii && host.size() <= 4 * maxHost &&
        idn2_to_ascii_8z(host.c_str(), &name, IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL) == IDN2_OK) {
        host = name;
        idn2_free(name);
    }
#endif
    return host;
}

// Stores the name with its labels reversed. REQUIRES: no escapes and no upper-case letters.
const char* setName(std::string_view name, Url* url) {
    url->kind = Url::name;
    url->host.clear();
    while (!name.empty()) {
        const auto dot = name.rfind('.');
        const std::string_view label = dot == name.npos ? name : name.substr(dot + 1);
        if (label.empty()) return "empty label in the host";
        if (label.size() > maxLabel) return "label of more than 63 bytes";
        if (!url->host.empty()) url->host.push_back('\0');
        url->host.append(label);
        name = dot == name.npos ? std::string_view() : name.substr(0, dot);
    }
    return url->host.empty() ? "no host" : nullptr;
}

// Reads a name alone, in lower case, which is what nearly all entries are. False for anything else.
bool readPlainName(std::string_view text, Url* url) {
    const std::size_t size = text.size();
    if (size == 0 || size > maxHost) return false;
    url->host.resize(size);
    char* to = url->host.data() + size;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= size; ++i) {
        if (i < size && isPlain[static_cast<unsigned char>(text[i])]) continue;
        const std::size_t label = i - start;
        if ((i < size && text[i] != '.') || label == 0 || label > maxLabel) return false;
        to -= label;
        std::memcpy(to, text.data() + start, label);
        if (i == size) break;
        *--to = '\0';
        start = i + 1;
    }
    if (text[start] <= '9') return false;  // perhaps an IPv4 address
    url->kind = Url::name;
    url->path.clear();
    url->port = 80;
    url->portGiven = false;
    return true;
}

const char* readHost(std::string_view text, Url* url) {
    char buffer[maxHost + 2];
    std::string unusual;
    for (const char c : text) {
        if (c == '%' || static_cast<signed char>(c) < 0) {
            unusual = unusualHost(text);
            text = unusual;
            break;
        }
    }
    while (!text.empty() && text.front() == '.')
        text.remove_prefix(1);
    if (!text.empty() && text.back() == '.') text.remove_suffix(1);
    if (text.empty()) return "no host";
    if (text.size() > maxHost) return "host of more than 253 bytes";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isForbidden[static_cast<unsigned char>(text[i])]) return "forbidden character in the host";
        buffer[i] = toLower(text[i]);
    }
    const std::string_view name(buffer, text.size());
    const auto dot = name.rfind('.');
    if (isNumber(dot == name.npos ? name : name.substr(dot + 1)))
        return readIpv4(name, url) ? nullptr : "bad IPv4 address";
    return setName(name, url);
}

const char* readPort(std::string_view text, Url* url) {
    if (text.empty()) return nullptr;
    unsigned port = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), port);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || port > 65535)
        return "bad port";
    url->port = static_cast<std::uint16_t>(port);
    url->portGiven = true;
    return nullptr;
}

const char* readAuthority(std::string_view text, Url* url) {
    if (const auto at = text.rfind('@'); at != text.npos) text.remove_prefix(at + 1);
    if (!text.empty() && text[0] == '[') {
        const auto end = text.find(']');
        if (end == text.npos || !readIpv6(text.substr(1, end - 1), url)) return "bad IPv6 address";
        text.remove_prefix(end + 1);
        if (text.empty()) return nullptr;
        return text[0] == ':' ? readPort(text.substr(1), url) : "bad IPv6 address";
    }
    const auto colon = text.rfind(':');
    if (colon == text.npos) return readHost(text, url);
    if (text.find(':') != colon && readIpv6(text, url)) return nullptr;
    if (const char* const reason = readPort(text.substr(colon + 1), url)) return reason;
    return readHost(text.substr(0, colon), url);
}

struct Scheme {
    const char* name;
    std::uint16_t port;
};
constexpr Scheme schemes[] = {{"http", 80}, {"https", 443}, {"ftp", 21}, {"ws", 80}, {"wss", 443}};

constexpr bool isSlash(char c) {
    return c == '/' || c == '\\';
}

// Removes the scheme and sets its default port.
std::string_view withoutScheme(std::string_view text, Url* url) {
    url->port = 80;
    url->portGiven = false;
    std::size_t end = 0;
    const auto isSchemeByte = [](char c) {
        const char low = toLower(c);
        return (low >= 'a' && low <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    };
    while (end < text.size() && isSchemeByte(text[end]))
        ++end;
    if (end > 0 && end + 1 < text.size() && text[end] == ':' && isSlash(text[end + 1])) {
        const Scheme* known = nullptr;
        for (const Scheme& scheme : schemes) {
            const std::string_view name = scheme.name;
            bool same = name.size() == end;
            for (std::size_t i = 0; same && i < end; ++i)
                same = toLower(text[i]) == name[i];
            if (same) known = &scheme;
        }
        if (known != nullptr || (end + 2 < text.size() && isSlash(text[end + 2]))) {
            url->port = known != nullptr ? known->port : 0;
            text.remove_prefix(end + 1);
        }
    }
    while (!text.empty() && isSlash(text[0]))
        text.remove_prefix(1);
    return text;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && static_cast<unsigned char>(text.front()) <= 0x20)
        text.remove_prefix(1);
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= 0x20)
        text.remove_suffix(1);
    return text;
}

bool readNetwork(std::string_view text, Url* entry) {
    const auto slash = text.find('/');
    if (slash == text.npos || slash == 0) return false;
    unsigned prefix = 0;
    const std::string_view digits = text.substr(slash + 1);
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), prefix);
    if (result.ec != std::errc() || result.ptr != digits.data() + digits.size()) return false;
    std::string_view address = text.substr(0, slash);
    if (address.find(':') != address.npos) {
        if (address.front() == '[' && address.back() == ']') address = address.substr(1, address.size() - 2);
        if (!readIpv6(address, entry)) return false;
        if (entry->kind == Url::ipv4) {  // an IPv4-mapped address
            if (prefix < 96) return false;
            prefix -= 96;
        }
    } else {
        in_addr parsed{};
        if (inet_pton(AF_INET, std::string(address).c_str(), &parsed) != 1) return false;
        setIpv4(ntohl(parsed.s_addr), entry);
    }
    if (prefix > entry->prefix) return false;
    std::string masked = entry->host;
    maskAddress(masked.data(), masked.size(), prefix);
    if (masked != entry->host) return false;
    entry->prefix = static_cast<unsigned char>(prefix);
    entry->path.clear();
    entry->port = 0;
    entry->portGiven = false;
    return true;
}

}  // namespace

const char* readUrl(std::string_view text, Url* url) {
    std::string cleaned;
    text = trimmed(text);
    const std::string_view rest = withoutScheme(text, url);
    std::size_t end = 0;
    bool toClean = false;
    for (; end < rest.size(); ++end) {
        const unsigned char kind = classOf[static_cast<unsigned char>(rest[end])];
        if (kind == slash || kind == question || kind == hash) break;
        toClean = toClean || kind == skipped;
    }
    std::string_view authority = rest.substr(0, end);
    if (toClean) {
        for (const char c : authority) {
            if (classOf[static_cast<unsigned char>(c)] != skipped) cleaned.push_back(c);
        }
        authority = cleaned;
    }
    if (const char* const reason = readAuthority(authority, url)) return reason;
    readPath(rest.substr(end), &url->path);
    return nullptr;
}

const char* readEntry(std::string_view text, Url* entry) {
    if (readPlainName(text, entry)) return nullptr;
    text = trimmed(text);
    return readNetwork(text, entry) ? nullptr : readUrl(text, entry);
}

std::string hostText(Url::Kind kind, std::string_view host) {
    if (kind != Url::name) {
        char text[INET6_ADDRSTRLEN] = "";
        if (host.size() == (kind == Url::ipv4 ? 4U : 16U))
            inet_ntop(kind == Url::ipv4 ? AF_INET : AF_INET6, host.data(), text, sizeof text);
        return text;
    }
    std::string text;
    while (!host.empty()) {
        const auto end = host.rfind('\0');
        if (!text.empty()) text.push_back('.');
        text.append(end == host.npos ? host : host.substr(end + 1));
        host = end == host.npos ? std::string_view() : host.substr(0, end);
    }
    return text;
}

void maskAddress(char* address, std::size_t size, unsigned prefix) {
    for (std::size_t i = 0; i<size; ++i, prefix = prefix> 8 ? prefix - 8 : 0) {
        if (prefix < 8) address[i] = static_cast<char>(address[i] & (0xff00 >> prefix));
    }
}

}  // namespace catalog
