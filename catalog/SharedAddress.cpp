#include "SharedAddress.h"

#include <algorithm>

namespace catalog {

namespace {

constexpr std::string_view scheme = "redis://";

bool readPort(std::string_view text, std::uint16_t* port) {
    unsigned number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9' || number > 65535) return false;
        number = 10 * number + static_cast<unsigned>(c - '0');
    }
    *port = static_cast<std::uint16_t>(number);
    return number > 0 && number <= 65535;
}

bool readHost(std::string_view text, SharedAddress::Host* host) {
    if (!text.empty() && text[0] == '/') {
        host->name = text;
        return true;
    }
    const bool isBracketed = !text.empty() && text[0] == '[';
    std::size_t end = isBracketed ? text.find(']') : text.find(':');
    if (isBracketed && end == text.npos) return false;
    host->name = text.substr(isBracketed ? 1 : 0, isBracketed ? end - 1 : end);
    if (isBracketed) ++end;
    return !host->name.empty() &&
           (end >= text.size() || (text[end] == ':' && readPort(text.substr(end + 1), &host->port)));
}

}  // namespace

std::string SharedAddress::Host::text() const {
    if (isSocket()) return name;
    return (name.find(':') == name.npos ? name : "[" + name + "]") + ":" + std::to_string(port);
}

const char* readSharedAddress(std::string_view text, SharedAddress* address) {
    *address = SharedAddress();
    if (text.substr(0, scheme.size()) != scheme) return "it does not begin with redis://";
    text.remove_prefix(scheme.size());
    const auto at = text.empty() || text[0] == '/' ? text.npos : text.rfind('@');
    if (at != text.npos) {
        const std::string_view login = text.substr(0, at);
        const auto colon = std::min(login.find(':'), login.size());
        address->user = login.substr(0, colon);
        address->password = login.substr(std::min(colon + 1, login.size()));
        text.remove_prefix(at + 1);
    }
    for (std::size_t end = 0; end != text.npos;) {
        end = text.find(',');
        SharedAddress::Host host;
        if (!readHost(text.substr(0, end), &host))
            return "a host is not HOST, HOST:PORT or the path of a socket";
        address->hosts.push_back(host);
        if (end != text.npos) text.remove_prefix(end + 1);
    }
    return nullptr;
}

}  // namespace catalog
