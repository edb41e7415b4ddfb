#include "Shared.h"

#include <algorithm>
#include <tuple>

#include "Writer.h"

namespace catalog {

namespace {

constexpr std::string_view metaFormat = "katd-store 1 ";

// Flags in the first byte of a group.
constexpr unsigned char groupPaths = 1;
// Flags of an entry.
constexpr unsigned char entryInstead = 1;
constexpr unsigned char entryPort = 2;  // a port follows
constexpr unsigned char entryRest = 4;  // the size of the rest and the rest follow

constexpr std::size_t groupHead = 1;

void appendNumber(std::size_t number, std::string* value) {
    value->push_back(static_cast<char>(number));
    value->push_back(static_cast<char>(number >> 8U));
}

// Reads the entries of a group one by one; each points into the value.
class GroupCursor {
public:
    explicit GroupCursor(std::string_view value) : left_(value.substr(std::min(groupHead, value.size()))) {}

    // False at the end, and where the bytes are not an entry.
    bool next() {
        if (left_.empty()) return false;
        const auto flags = static_cast<unsigned char>(left_[0]);
        std::string_view left = left_.substr(1);
        std::size_t size = 0;
        std::size_t number = 0;
        if ((flags & ~(entryInstead | entryPort | entryRest)) != 0) return false;
        if ((flags & entryPort) != 0 && !takeNumber(&left, &number)) return false;
        if ((flags & entryRest) != 0 && !takeNumber(&left, &size)) return false;
        if (size > left.size()) return false;
        instead = (flags & entryInstead) != 0;
        port = static_cast<unsigned>(number);
        rest = left.substr(0, size);
        left.remove_prefix(size);
        if (!takeNumber(&left, &number) || number > maxEntryCategories || 2 * number > left.size())
            return false;
        categories = left.substr(0, 2 * number);
        left_ = left.substr(2 * number);
        return true;
    }
    bool atEnd() const { return left_.empty(); }

    static bool takeNumber(std::string_view* bytes, std::size_t* number) {
        if (bytes->size() < 2) return false;
        *number = static_cast<unsigned char>((*bytes)[0]) | static_cast<unsigned char>((*bytes)[1]) << 8U;
        bytes->remove_prefix(2);
        return true;
    }

    bool instead = false;
    unsigned port = 0;
    std::string_view rest;
    std::string_view categories;  // two bytes each

private:
    std::string_view left_;
};

// Where the first segment of an encoded path ends; 0 if it has none.
std::size_t firstSegmentEnd(std::string_view path) {
    if (path.empty() || path[0] != keySlash) return 0;
    constexpr char ends[] = {keySlash, keyQuestion};
    return std::min(path.find_first_of(ends, 1, sizeof ends), path.size());
}

std::string prefixed(std::string_view key) {
    return std::string(sharedPrefix).append(key);
}

}  // namespace

std::string sharedMeta(std::string_view version) {
    return std::string(metaFormat).append(version);
}

std::string_view sharedVersion(std::string_view meta) {
    if (meta.substr(0, metaFormat.size()) != metaFormat) return {};
    meta.remove_prefix(metaFormat.size());
    return meta.find(' ') == meta.npos ? meta : std::string_view();
}

SharedPlace sharedPlace(std::string_view key) {
    if (key[0] != pathRecord) return {prefixed(key), 0, {}};
    // Both kinds of keys begin with one byte before the host; that of an address ends with one byte more.
    const std::string host = hostKeyOf(key);
    const std::size_t hostEnd = host.size();
    const std::size_t base = pathBase(key);
    const std::string_view path = key.substr(base);
    const std::size_t segmentEnd = firstSegmentEnd(path);
    SharedPlace place;
    if (base > hostEnd) {
        place.port = static_cast<std::uint16_t>(static_cast<unsigned char>(key[base - 2]) << 8U |
                                                static_cast<unsigned char>(key[base - 1]));
    }
    place.rest = path.substr(segmentEnd);
    place.group = segmentEnd == 0 ? prefixed(host)
                                  : prefixed(key.substr(0, hostEnd)).append(path.substr(0, segmentEnd));
    return place;
}

std::string sharedHostGroup(std::string_view pathKey) {
    return prefixed(hostKeyOf(pathKey));
}

std::string encodeGroup(std::vector<SharedEntry> entries, bool withPaths) {
    // The most specific one first, as in the catalogue's answers.
    const auto rank = [](const SharedEntry& entry) {
        return std::make_tuple(entry.rest.size(), entry.port, std::string_view(entry.rest));
    };
    std::sort(entries.begin(), entries.end(), [&](auto& a, auto& b) { return rank(a) > rank(b); });
    std::string value(1, static_cast<char>(withPaths ? groupPaths : 0));
    for (const SharedEntry& entry : entries) {
        value.push_back(static_cast<char>((entry.instead ? entryInstead : 0) |
                                          (entry.port != 0 ? entryPort : 0) |
                                          (entry.rest.empty() ? 0 : entryRest)));
        if (entry.port != 0) appendNumber(entry.port, &value);
        if (!entry.rest.empty()) {
            appendNumber(entry.rest.size(), &value);
            value += entry.rest;
        }
        appendNumber(entry.categories.size(), &value);
        for (const std::uint16_t category : entry.categories)
            appendNumber(category, &value);
    }
    return value;
}

bool isGroup(std::string_view value) {
    if (value.size() < groupHead || (static_cast<unsigned char>(value[0]) & ~groupPaths) != 0) return false;
    GroupCursor cursor(value);
    while (cursor.next()) {
    }
    return cursor.atEnd();
}

bool groupHasPaths(std::string_view value) {
    return !value.empty() && (static_cast<unsigned char>(value[0]) & groupPaths) != 0;
}

SharedQuestion::SharedQuestion(const Url& url) : port_(url.port) {
    path_.resize(std::min(url.path.size(), maxKey + 1));
    encodePath(url.path.data(), path_.size(), path_.data());
    segmentEnd_ = firstSegmentEnd(path_);
    Url host;
    host.kind = url.kind;
    host.host = url.host;
    const auto addCandidate = [this](const Url& candidate, bool mayHavePaths) {
        const std::string pathHost = pathKey(candidate, 0);
        const bool fits = mayHavePaths && segmentEnd_ != 0 && pathHost.size() + segmentEnd_ <= maxKey;
        candidates_.push_back({prefixed(hostKey(candidate)),
                               fits ? prefixed(pathHost).append(path_, 0, segmentEnd_) : std::string()});
    };
    if (url.kind == Url::name) {
        // The labels are in reverse order: each parent is a prefix.
        while (true) {
            addCandidate(host, true);
            const auto end = host.host.rfind('\0');
            if (end == host.host.npos) break;
            host.host.resize(end);
        }
        return;
    }
    const auto bits = static_cast<unsigned>(8 * host.host.size());
    for (unsigned prefix = bits + 1; prefix-- > 0;) {
        maskAddress(host.host.data(), host.host.size(), prefix);
        host.prefix = static_cast<unsigned char>(prefix);
        addCandidate(host, prefix == bits);
    }
}

bool SharedQuestion::addGroup(std::string_view value, std::string_view rest, Answer* answer) const {
    GroupCursor entry(value);
    while (entry.next()) {
        const std::size_t size = entry.rest.size();
        if ((entry.port != 0 && entry.port != port_) || rest.substr(0, size) != entry.rest ||
            (size > 0 && !endsAtBoundary(rest.data(), rest.size(), size)))
            continue;
        answer->covered = true;
        std::size_t category = 0;
        while (GroupCursor::takeNumber(&entry.categories, &category))
            answer->add(static_cast<std::uint16_t>(category));
        if (entry.instead) return false;
    }
    return true;
}

bool SharedQuestion::add(std::string_view hostValue, std::string_view pathValue, Answer* answer) const {
    const std::string_view path = path_;
    return addGroup(pathValue, path.substr(segmentEnd_), answer) && addGroup(hostValue, path, answer);
}

}  // namespace catalog
