#include "HelperRedirect.h"

#include <cctype>

namespace katc {

namespace {

void appendEscaped(std::string_view value, std::string* out) {
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

}  // namespace

std::string HelperRedirect::set(std::string_view text) {
    const std::size_t scheme = text.find("://");
    if (scheme == text.npos || (text.substr(0, scheme) != "http" && text.substr(0, scheme) != "https"))
        return "must begin with http:// or https://";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) <= ' ' || c == '"' || c == '\\' || c == 0x7f)
            return "must not hold blanks, quotes, backslashes or control characters";
    }
    const std::size_t host = scheme + 3;
    if (host == text.size() || text.find_first_of("{/?#", host) == host) return "must name a host";
    if (text.find('{') < text.find_first_of("/?#", host))
        return "must have its {...} behind the host and a /";

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
            return "knows {category}, {name} and {url} alone, not " + std::string(word);
        }
        at = open + word.size();
    }
    fixed_ = pieces_.front().text;
    // Squid's form of a URL has the / behind the host.
    if (fixed_.find_first_of("/?#", host) == fixed_.npos) fixed_ += '/';
    return {};
}

void HelperRedirect::append(std::string_view category, std::string_view name, std::string_view url,
                            std::string* out) const {
    for (const Piece& piece : pieces_) {
        switch (piece.kind) {
            case Kind::text:
                *out += piece.text;
                break;
            case Kind::category:
                appendEscaped(category, out);
                break;
            case Kind::name:
                appendEscaped(name, out);
                break;
            case Kind::url:
                appendEscaped(url, out);
                break;
        }
    }
}

}  // namespace katc
