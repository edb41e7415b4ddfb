#include "ItemText.h"

#include <arpa/inet.h>

#include <cstring>

#include "KatdUtil/Utils.h"

namespace katlist {

using KATD_SPACE::Utils;

namespace {

constexpr const char* nothingLeft = "nothing is left of it";

// What no host has, nor a port or user information beside it, but lines have that are no URLs.
constexpr const char* notInUrlHost = " \t\"<>\\^`{}|*";
// A list of hosts holds no questions and parameters either.
constexpr const char* notInHost = " \t\"<>\\^`{}|*?#&=;,!$'()+~/%";

const char* checkBytes(const char* text) {
    if (std::strlen(text) > itemLimit) return "it is longer than 65535 bytes";
    return nullptr;
}

// The host part, as katd cuts it: up to the first slash.
const char* checkHost(const std::string& host, const char* forbidden) {
    if (host.empty()) return "it has no host";
    if (host.find('*') != std::string::npos) return "katd knows no wildcards";
    if (host.find_first_of(" \t") != std::string::npos) return "there is a blank in the host";
    bool control = false;
    bool word = false;
    for (const char c : host) {
        control = control || (c >= 0 && c < ' ') || c == '\x7f';
        word = word || c < 0 || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
    }
    if (control || !word || host.find_first_of(forbidden) != std::string::npos) return "it is no host or URL";
    return nullptr;
}

const char* checkUrl(const char* text) {
    if (*text == '\0') return nothingLeft;
    const std::size_t length = std::strlen(text);
    if (std::strchr(text, '\n') != nullptr) return "it holds a line feed, which a list cannot";
    // The reader of lists takes blanks off: the item would match more than it says.
    if (std::strchr(" \t\r", text[length - 1]) != nullptr)
        return "it ends in a blank, which a list cannot hold";
    return checkHost(std::string(text, std::strcspn(text, "/")), notInUrlHost);
}

// Lower-cases the scheme and the host alone.
void lowerHost(char* text) {
    char* slash = std::strchr(text, '/');
    if (slash != nullptr && slash > text && slash[-1] == ':' && slash[1] == '/')
        slash = std::strchr(slash + 2, '/');
    if (slash != nullptr) *slash = '\0';
    Utils::toLower(text);
    if (slash != nullptr) *slash = '/';
}

// With a dot at the end an item is another host, which katd does find: cut only where somebody wrote it.
const char* hostItem(char* text, bool cutsDot) {
    if (const char* reason = checkBytes(text)) return reason;
    Utils::removePTP(Utils::toLower(Utils::trim(text)));
    char* slash = std::strchr(text, '/');
    if (slash != nullptr && slash[1] == '\0' && slash > text) *slash = '\0';
    if (text[0] == '.' && text[1] != '\0') std::memmove(text, text + 1, std::strlen(text));
    const std::size_t length = std::strlen(text);
    if (cutsDot && length > 1 && text[length - 1] == '.') text[length - 1] = '\0';
    if (*text == '\0') return nothingLeft;
    slash = std::strchr(text, '/');
    if (slash != nullptr && slash > text) return "it has a path: it belongs in a list of URLs";
    return checkHost(text, notInHost);
}

}  // namespace

const char* toUrlItem(char* text) {
    if (const char* reason = checkBytes(text)) return reason;
    Utils::removePTP(Utils::toLower(Utils::trim(text)));
    char* path = std::strchr(text, '/');
    if (path != nullptr) {
        if (std::strstr(path, "%00") != nullptr) return "it holds %00, where katd ends a URL";
        Utils::decodeHexString(path);
    }
    return checkUrl(text);
}

const char* toHostItem(char* text) {
    return hostItem(text, true);
}

const char* storedToItem(Kind kind, char* text) {
    if (kind == Kind::domains) return hostItem(text, false);
    if (const char* reason = checkBytes(text)) return reason;
    lowerHost(Utils::trim(text));
    Utils::removePTP(text);
    return checkUrl(text);
}

bool hasCapitals(const char* text) {
    return text[std::strcspn(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZ")] != '\0';
}

bool isAddress(const std::string& item) {
    const std::string host = item.substr(0, item.find('/'));
    if (host[0] == '[') return true;
    in6_addr address;
    return inet_pton(AF_INET6, host.c_str(), &address) == 1 ||
           inet_pton(AF_INET, host.substr(0, host.find(':')).c_str(), &address) == 1;
}

std::int32_t toCategory(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    const std::size_t end = text.find_last_not_of(" \t\r\n");
    if (begin == std::string::npos || end - begin >= 9) return -1;
    const std::string number = text.substr(begin, end - begin + 1);
    if (!Utils::isDigit(number.c_str())) return -1;
    const std::int32_t category = Utils::toInt32(number.c_str());
    return category <= categoryLimit ? category : -1;
}

}  // namespace katlist
