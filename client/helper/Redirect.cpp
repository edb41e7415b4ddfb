#include "helper/Redirect.h"

#include <algorithm>
#include <cctype>

namespace katc {

namespace {

void appendEncoded(std::string_view value, std::string* out) {
    constexpr char digits[] = "0123456789ABCDEF";
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain =
            byte < 0x80 && (std::isalnum(byte) != 0 ||
                            (c != 0 && std::string_view("-._~").find(c) != std::string_view::npos));
        if (isPlain) {
            *out += c;
        } else {
            *out += '%';
            *out += digits[byte >> 4];
            *out += digits[byte & 15];
        }
    }
}

std::string toLower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

// host:port, with the scheme's default port if there is none, without user information or dots at the host's
// end.
std::string hostAndPort(std::string_view authority, std::string_view scheme) {
    if (const std::size_t at = authority.rfind('@'); at != authority.npos) authority.remove_prefix(at + 1);
    std::string_view port;
    const std::size_t colon = authority.rfind(':');
    if (colon != authority.npos && authority.find_first_not_of("0123456789", colon + 1) == authority.npos) {
        port = authority.substr(colon + 1);
        port.remove_prefix(std::min(port.find_first_not_of('0'), port.size()));
        authority = authority.substr(0, colon);
    }
    while (!authority.empty() && authority.back() == '.')
        authority.remove_suffix(1);
    if (port.empty()) port = scheme == "https" ? "443" : "80";
    return toLower(authority) + ":" + std::string(port);
}

// Equivalent URLs become equal: squid's form of a URL and the one that an administrator wrote.
std::string comparable(std::string_view url) {
    const std::size_t separator = url.find("://");
    if (separator == url.npos) return hostAndPort(url, "https");
    const std::string scheme = toLower(url.substr(0, separator));
    url.remove_prefix(separator + 3);
    url = url.substr(0, url.find('#'));  // browsers do not send it
    const std::size_t path = std::min(url.find_first_of("/?"), url.size());
    std::string text = scheme + "://" + hostAndPort(url.substr(0, path), scheme);
    if (path == url.size() || url[path] != '/') text += '/';
    return text.append(url.substr(path));
}

}  // namespace

std::string Redirect::set(std::string_view text) {
    const std::size_t scheme = text.find("://");
    const std::string schemeName = toLower(text.substr(0, std::min(scheme, text.size())));
    if (scheme == text.npos || (schemeName != "http" && schemeName != "https"))
        return "must begin with http:// or https://";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) <= ' ' || c == '"' || c == '\\' || c == 0x7f)
            return "must not contain blanks, quotes, backslashes or control characters";
    }
    const std::size_t host = scheme + 3;
    const std::size_t path = text.find_first_of("/?#", host);
    hostPort_ = hostAndPort(text.substr(host, path == text.npos ? path : path - host), schemeName);
    if (hostPort_[0] == ':' || text[host] == '{') return "must name a host";
    if (text.find('{') < path) return "must have its {...} after the host and a /";

    pieces_.clear();
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t open = text.find('{', at);
        if (open != at) pieces_.push_back({Kind::text, std::string(text.substr(at, open - at))});
        if (open == text.npos) break;
        const std::size_t close = text.find('}', open);
        const std::string_view word = text.substr(open, close == text.npos ? close : close + 1 - open);
        if (word == "{category}") {
            pieces_.push_back({Kind::category, {}});
        } else if (word == "{name}") {
            pieces_.push_back({Kind::name, {}});
        } else if (word == "{url}") {
            pieces_.push_back({Kind::url, {}});
        } else {
            return "may contain only {category}, {name} and {url}, not " + std::string(word);
        }
        at = open + word.size();
    }
    fixed_ = comparable(pieces_.front().text);
    return {};
}

bool Redirect::leadsTo(std::string_view url) const {
    const std::string asked = comparable(url);
    return asked == hostPort_ || asked.compare(0, fixed_.size(), fixed_) == 0;
}

void Redirect::append(std::string_view category, std::string_view name, std::string_view url,
                      std::string* out) const {
    for (const Piece& piece : pieces_) {
        switch (piece.kind) {
            case Kind::text:
                *out += piece.text;
                break;
            case Kind::category:
                appendEncoded(category, out);
                break;
            case Kind::name:
                appendEncoded(name, out);
                break;
            case Kind::url:
                appendEncoded(url, out);
                break;
        }
    }
}

}  // namespace katc
