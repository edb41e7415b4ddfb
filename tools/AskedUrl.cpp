#include "tools/AskedUrl.h"

#include <algorithm>

namespace tools {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Percent-decodes `text` in place from `begin` on. %00 stays, because a zero byte would end the URL for katd.
void decode(std::string* text, std::size_t begin) {
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

// Reduces the authority "user:password@host:port", which is `text` from `begin` on, to the host without dots
// at its end and, if keepsPort, the port.
void strip(std::string* text, std::size_t begin, bool keepsPort) {
    std::string_view authority = std::string_view(*text).substr(begin);
    if (const std::size_t at = authority.rfind('@'); at != authority.npos) authority.remove_prefix(at + 1);
    const std::size_t colon = authority.rfind(':');
    // Several colons without brackets are a bare IPv6 address.
    const bool isPort = colon != authority.npos && (authority.find(':') == colon || authority[0] == '[') &&
                        authority.find_first_not_of("0123456789", colon + 1) == authority.npos;
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

void appendAskedUrl(std::string_view url, bool isEscaped, bool keepsPort, std::string* out) {
    const std::size_t separator = url.find("://");
    const std::size_t host = separator < url.find('/') ? separator + 3 : 0;
    const std::size_t path = std::min(url.find_first_of("/?#", host), url.size());
    out->append(url.substr(0, host));
    const std::size_t begin = out->size();
    out->append(url.substr(host, path - host));
    if (isEscaped) decode(out, begin);
    strip(out, begin, keepsPort);
    out->append(url.substr(path));
}

}  // namespace tools
