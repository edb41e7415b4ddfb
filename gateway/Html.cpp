#include "Html.h"

#include <algorithm>

namespace gateway {

namespace {

void appendPercentEscape(unsigned char byte, std::string* out) {
    constexpr char digits[] = "0123456789ABCDEF";
    *out += '%';
    *out += digits[byte >> 4];
    *out += digits[byte & 15];
}

bool isUnreserved(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

std::string escaped(std::string_view string) {
    std::string out;
    out.reserve(string.size());
    for (const char c : string) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string shownUrl(std::string_view url, std::size_t most) {
    std::string printable;
    for (const char c : url.substr(0, most)) {
        if (c > ' ' && c < 0x7f)
            printable += c;
        else
            appendPercentEscape(static_cast<unsigned char>(c), &printable);
    }
    return escaped(printable) + (url.size() > most ? "…" : "");
}

std::string row(const std::string& name, const std::string& html) {
    return "<dt>" + name + "</dt><dd>" + html + "</dd>\n";
}

std::string_view hostOf(std::string_view url) {
    const std::size_t separator = url.find("://");
    if (separator < url.find_first_of("/?#")) url.remove_prefix(separator + 3);
    url = url.substr(0, url.find_first_of("/?#"));
    if (const std::size_t at = url.rfind('@'); at != url.npos) url.remove_prefix(at + 1);
    return url;
}

std::string urlEncoded(std::string_view string) {
    std::string out;
    for (const char c : string) {
        if (isUnreserved(c))
            out += c;
        else
            appendPercentEscape(static_cast<unsigned char>(c), &out);
    }
    return out;
}

}  // namespace gateway
