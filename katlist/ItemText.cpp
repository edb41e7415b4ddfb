#include "ItemText.h"

#include <cstring>

#include "KatdUtil/Utils.h"

namespace katlist {

using KATD_SPACE::Utils;
using listreader::EntryKind;

namespace {

// Decodes the path, as katd does with the path of a URL.
const char* decodePath(std::string* text) {
    Utils::toLower(text->data());
    const std::size_t path = text->find('/');
    if (path == std::string::npos) return nullptr;
    if (text->find("%00", path) != std::string::npos) return "it contains %00, where katd ends a URL";
    Utils::decodeHexString(text->data() + path);
    text->resize(std::strlen(text->c_str()));
    return nullptr;
}

const char* toUrlItem(Entry* entry) {
    std::string& text = entry->text;
    if (!entry->isStored) {
        if (const char* reason = decodePath(&text)) return reason;
    }
    if (text.find('\n') != std::string::npos) return "it contains a line feed, which a list cannot hold";
    // The reader of lists removes such blanks: the item would match more than it says.
    if (std::strchr(" \t\r", text.back()) != nullptr) return "it ends in a blank, which a list cannot hold";
    return nullptr;
}

const char* toHostItem(Entry* entry) {
    std::string& text = entry->text;
    if (entry->kind == EntryKind::url) return "it has a path: it belongs in a list of URLs";
    text.resize(entry->hostEnd);
    // katd treats a host with a dot at the end as a different host; in input the dot means the DNS root.
    if (!entry->isStored && text.size() > 1 && text.back() == '.') text.pop_back();
    return nullptr;
}

}  // namespace

const char* toItem(Kind kind, Entry* entry) {
    if (entry->kind == EntryKind::network)
        return "it is a network, and katd's lists hold single hosts and URLs";
    if (entry->isBareIpv6) return "an IPv6 address needs brackets, as in [2001:db8::1]";
    return kind == Kind::urls ? toUrlItem(entry) : toHostItem(entry);
}

const char* storedToItem(Kind kind, const std::string& item, std::string* asked) {
    Entry entry;
    entry.isStored = true;
    const char* reason = listreader::parseEntry(item, &entry);
    if (reason == nullptr) reason = toItem(kind, &entry);
    *asked = std::move(entry.text);
    return reason;
}

bool hasCapitals(const char* text) {
    return text[std::strcspn(text, "ABCDEFGHIJKLMNOPQRSTUVWXYZ")] != '\0';
}

}  // namespace katlist
