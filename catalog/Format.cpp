#include "Format.h"

namespace catalog {

namespace {

void appendHost(const Url& url, std::string* key) {
    if (url.kind != Url::name) key->push_back(url.kind == Url::ipv4 ? '4' : '6');
    key->append(url.host);
}

constexpr char hostEnds[] = {keyPort, keySlash, keyQuestion, '\0'};

constexpr std::size_t addressSize(char family) {
    return family == '4' ? 4 : 16;
}

}  // namespace

std::string hostKey(const Url& entry) {
    std::string key(1, entry.kind == Url::name ? hostRecord : networkRecord);
    appendHost(entry, &key);
    if (entry.kind != Url::name) key.push_back(static_cast<char>(entry.prefix));
    return key;
}

std::string pathKey(const Url& entry, unsigned port) {
    std::string key(1, pathRecord);
    // No name begins with a zero byte, so it distinguishes addresses from names that begin with 4 or 6.
    if (entry.kind != Url::name) key.push_back('\0');
    appendHost(entry, &key);
    if (port != 0) {
        key.push_back(keyPort);
        key.push_back(static_cast<char>(port >> 8U));
        key.push_back(static_cast<char>(port));
    }
    const std::size_t base = key.size();
    key.resize(base + entry.path.size());
    encodePath(entry.path.data(), entry.path.size(), key.data() + base);
    return key;
}

void encodePath(const char* path, std::size_t size, char* key) {
    std::size_t i = 0;
    for (; i < size && path[i] != '?'; ++i)
        key[i] = path[i] == '/' ? keySlash : path[i];
    if (i < size) key[i++] = keyQuestion;
    for (; i < size; ++i)
        key[i] = path[i] == '&' ? keyAmpersand : path[i];
}

bool isAncestor(std::string_view above, std::string_view below) {
    if (above[0] != below[0]) return false;
    if (recordOf(above) == networkRecord) {
        const std::size_t size = above.size();
        const auto prefix = static_cast<unsigned char>(above.back());
        if (below.size() != size || above[1] != below[1] ||
            prefix >= static_cast<unsigned char>(below.back()))
            return false;
        char masked[19];
        std::memcpy(masked, below.data(), size);
        maskAddress(masked + 2, size - 3, prefix);
        return std::memcmp(masked, above.data(), size - 1) == 0;
    }
    if (below.size() <= above.size() || below.compare(0, above.size(), above) != 0) return false;
    if (recordOf(above) == hostRecord) return below[above.size()] == '\0';
    return endsAtBoundary(below.data(), below.size(), above.size()) && pathBase(below) <= above.size();
}

unsigned ancestorMark(std::string_view key) {
    return recordOf(key) == networkRecord ? static_cast<unsigned char>(key.back())
                                          : static_cast<unsigned>(key.size());
}

std::size_t pathBase(std::string_view key) {
    std::size_t base = 1;
    if (key.size() > 2 && key[1] == '\0') {
        base = 3 + addressSize(key[2]);
    } else {
        base = key.find_first_of(hostEnds, 1);
        if (base == key.npos) return 0;
    }
    if (base >= key.size()) return 0;
    if (key[base] == keyPort) base += 3;
    return base <= key.size() ? base : 0;
}

std::string keyText(std::string_view key) {
    if (key.empty()) return {};
    if (key[0] == hostRecord) return hostText(Url::name, key.substr(1));
    if (key[0] == networkRecord && key.size() > 2) {
        const std::size_t size = addressSize(key[1]);
        if (key.size() != size + 3) return {};
        const auto prefix = static_cast<unsigned char>(key.back());
        const std::string text = hostText(key[1] == '4' ? Url::ipv4 : Url::ipv6, key.substr(2, size));
        return prefix == 8 * size ? text : text + "/" + std::to_string(prefix);
    }
    const std::size_t base = pathBase(key);
    if (key[0] != pathRecord || base == 0) return {};
    const bool isAddress = key[1] == '\0';
    std::size_t hostEnd = isAddress ? 3 + addressSize(key[2]) : key.find_first_of(hostEnds, 1);
    std::string text;
    if (isAddress) {
        text = hostText(key[2] == '4' ? Url::ipv4 : Url::ipv6, key.substr(3, hostEnd - 3));
        if (key[2] != '4') text = "[" + text + "]";
    } else {
        text = hostText(Url::name, key.substr(1, hostEnd - 1));
    }
    if (base > hostEnd) {
        const auto high = static_cast<unsigned char>(key[base - 2]);
        const auto low = static_cast<unsigned char>(key[base - 1]);
        text += ":" + std::to_string(high * 256U + low);
    }
    for (const char c : key.substr(base))
        text.push_back(c == keySlash ? '/' : c == keyQuestion ? '?' : c == keyAmpersand ? '&' : c);
    return text;
}

}  // namespace catalog
