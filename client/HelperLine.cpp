#include "HelperLine.h"

#include <algorithm>

namespace katc {

namespace {

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

// Takes the next value from the front of a line; empty when there is none.
std::string_view takeValue(std::string_view* line) {
    line->remove_prefix(std::min(line->find_first_not_of(' '), line->size()));
    const std::string_view value = line->substr(0, line->find(' '));
    line->remove_prefix(value.size());
    return value;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The bytes of `text` from `begin` on, unescaped in place. A zero byte would end the URL for katd: it stays
// as it is.
void unescape(std::string* text, std::size_t begin) {
    std::size_t to = text->find('%', begin);
    if (to == text->npos) return;
    for (std::size_t from = to; from < text->size(); ++from, ++to) {
        (*text)[to] = (*text)[from];
        if ((*text)[from] != '%' || text->size() - from < 3) continue;
        const int high = hexDigit((*text)[from + 1]);
        const int low = hexDigit((*text)[from + 2]);
        if (high < 0 || low < 0 || high + low == 0) continue;
        (*text)[to] = static_cast<char>(high * 16 + low);
        from += 2;
    }
    text->resize(to);
}

// Leaves the host, without dots at its end, of the authority "user:password@host:port" that `text` ends with
// from `begin` on; and the port if it is to be kept.
void strip(std::string* text, std::size_t begin, bool keepsPort) {
    std::string_view authority = std::string_view(*text).substr(begin);
    if (const std::size_t at = authority.rfind('@'); at != authority.npos) authority.remove_prefix(at + 1);
    const std::size_t colon = authority.rfind(':');
    // Several colons without brackets are an IPv6 address by itself.
    const bool isPort = colon != authority.npos && (authority.find(':') == colon || authority[0] == '[') &&
                        (colon + 1 == authority.size() || isNumber(authority.substr(colon + 1)));
    std::string_view host = isPort ? authority.substr(0, colon) : authority;
    const std::size_t portSize = authority.size() - host.size();
    while (!host.empty() && host.back() == '.')
        host.remove_suffix(1);
    const auto hostBegin = static_cast<std::size_t>(host.data() - text->data());
    const std::size_t hostEnd = hostBegin + host.size();
    const std::size_t keptPort = keepsPort && !host.empty() ? portSize : 0;
    text->erase(hostEnd, text->size() - portSize - hostEnd);  // the dots
    text->resize(hostEnd + keptPort);
    text->erase(begin, hostBegin - begin);
}

}  // namespace

HelperLine parseHelperLine(std::string_view line, bool hasChannels, unsigned urlField) {
    HelperLine parsed;
    if (hasChannels) {
        std::string_view rest = line;
        const std::string_view channel = takeValue(&rest);
        if (!isNumber(channel)) {
            parsed.problem =
                "the line has no channel-ID: set concurrency in squid.conf, or leave --concurrency out";
            return parsed;
        }
        parsed.channel = channel;
        line = rest;
    }
    std::string_view value;
    for (unsigned i = 0; i < urlField; ++i)
        value = takeValue(&line);
    if (value.empty() || value == "-") {
        parsed.problem = "the line has no URL where --url-field says, or is too long";
    } else if (!hasChannels && isNumber(value) && !takeValue(&line).empty()) {
        parsed.problem =
            "the line has a number for a URL: with concurrency in squid.conf, give --concurrency";
    } else {
        parsed.url = value;
    }
    return parsed;
}

void appendAsked(std::string_view url, bool isEscaped, bool keepsPort, std::string* out) {
    const std::size_t separator = url.find("://");
    const std::size_t host = separator < url.find('/') ? separator + 3 : 0;
    const std::size_t path = std::min(url.find_first_of("/?#", host), url.size());
    out->append(url.substr(0, host));
    const std::size_t begin = out->size();
    out->append(url.substr(host, path - host));
    if (isEscaped) unescape(out, begin);
    strip(out, begin, keepsPort);
    out->append(url.substr(path));
}

}  // namespace katc
