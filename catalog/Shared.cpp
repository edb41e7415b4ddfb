#include "Shared.h"

#include <algorithm>
#include <tuple>

#include "Writer.h"

namespace catalog {

namespace {

constexpr std::string_view metaFormat = "katd-store 1 ";

// Flags in the first byte of a group.
constexpr unsigned char groupBelow = 1;
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
        port = static_cast<std::uint16_t>(number);
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
        *number = static_cast<unsigned char>((*bytes)[0]) +
                  std::size_t{256} * static_cast<unsigned char>((*bytes)[1]);
        bytes->remove_prefix(2);
        return true;
    }

    bool instead = false;
    std::uint16_t port = 0;
    std::string_view rest;
    std::string_view categories;  // two bytes each

private:
    std::string_view left_;
};

// Where the parts of an encoded path end that make the keys of its groups.
std::array<std::size_t, sharedLevels> levelEnds(std::string_view path) {
    std::array<std::size_t, sharedLevels> ends{};
    for (std::size_t level = 1; level < sharedLevels; ++level) {
        std::size_t end = ends[level - 1];
        if (end < path.size()) ++end;
        while (!endsAtBoundary(path.data(), path.size(), end))
            ++end;
        ends[level] = end;
    }
    return ends;
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
    if (key[0] != pathRecord) return {prefixed(key), {}, 0, {}};
    // Both kinds of keys begin with one byte before the host; that of an address ends with one byte more.
    const std::string host = hostKeyOf(key);
    const std::size_t hostEnd = host.size();
    const std::size_t base = pathBase(key);
    const std::string_view path = key.substr(base);
    const auto ends = levelEnds(path);
    SharedPlace place;
    if (base > hostEnd) {
        place.port = static_cast<std::uint16_t>(static_cast<unsigned char>(key[base - 2]) << 8U |
                                                static_cast<unsigned char>(key[base - 1]));
    }
    place.group = prefixed(host);
    for (std::size_t level = 1; level < sharedLevels && ends[level] > ends[level - 1]; ++level) {
        place.above.push_back(std::move(place.group));
        place.group = prefixed(key.substr(0, hostEnd)).append(path.substr(0, ends[level]));
    }
    place.rest = path.substr(ends.back());
    return place;
}

std::string encodeGroup(std::vector<SharedEntry> entries, bool hasBelow) {
    // The most specific one first, as in the catalogue's answers.
    const auto rank = [](const SharedEntry& entry) {
        return std::make_tuple(entry.rest.size(), entry.port, std::string_view(entry.rest));
    };
    std::sort(entries.begin(), entries.end(), [&](auto& a, auto& b) { return rank(a) > rank(b); });
    std::string value(1, static_cast<char>(hasBelow ? groupBelow : 0));
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
    if (value.size() < groupHead || (static_cast<unsigned char>(value[0]) & ~groupBelow) != 0) return false;
    GroupCursor cursor(value);
    while (cursor.next()) {
    }
    return cursor.atEnd();
}

std::vector<SharedEntry> decodeGroup(std::string_view value) {
    std::vector<SharedEntry> entries;
    GroupCursor cursor(value);
    while (cursor.next()) {
        SharedEntry& entry = entries.emplace_back();
        entry.port = cursor.port;
        entry.rest = cursor.rest;
        entry.instead = cursor.instead;
        std::size_t category = 0;
        while (GroupCursor::takeNumber(&cursor.categories, &category))
            entry.categories.push_back(static_cast<std::uint16_t>(category));
    }
    return entries;
}

std::string sharedEntryKey(std::string_view group, const SharedEntry& entry) {
    std::string key(group.substr(sharedPrefix.size()));
    if (entry.port == 0 && entry.rest.empty()) return key;
    // A network whose entries have ports is a single address.
    if (key[0] == networkRecord) key = std::string("\0\0", 2) + key.substr(1, key.size() - 2);
    const std::size_t base = key[0] == pathRecord ? pathBase(key) : key.size();
    key[0] = pathRecord;
    if (entry.port != 0) {
        const char port[] = {keyPort, static_cast<char>(entry.port >> 8U), static_cast<char>(entry.port)};
        key.insert(base, port, sizeof port);
    }
    return key + entry.rest;
}

bool groupHasBelow(std::string_view value) {
    return !value.empty() && (static_cast<unsigned char>(value[0]) & groupBelow) != 0;
}

SharedQuestion::SharedQuestion(const Url& url)
    : port_(url.port), isName_(url.kind == Url::name), host_(url.host) {
    path_.resize(std::min(url.path.size(), maxKey + 1));
    encodePath(url.path.data(), path_.size(), path_.data());
    ends_ = levelEnds(path_);
    // The labels are in reverse order: each parent is a prefix.
    for (std::size_t end = host_.size(); isName_ && end != host_.npos; end = host_.rfind('\0', end - 1))
        labels_.push_back(static_cast<unsigned char>(end));
}

std::string SharedQuestion::key(std::size_t candidate, std::size_t level) const {
    const bool isPath = level > 0;
    // A network has no paths.
    if (isPath && (ends_[level] == ends_[level - 1] || (!isName_ && candidate > 0))) return {};
    std::string key(sharedPrefix);
    key.push_back(isPath ? pathRecord : isName_ ? hostRecord : networkRecord);
    if (isName_) {
        key.append(host_, 0, labels_[candidate]);
    } else {
        if (isPath) key.push_back('\0');
        key.push_back(host_.size() == 4 ? '4' : '6');
        key.append(host_);
    }
    if (!isName_ && !isPath) {
        const std::size_t prefix = 8 * host_.size() - candidate;
        maskAddress(&key[key.size() - host_.size()], host_.size(), static_cast<unsigned>(prefix));
        key.push_back(static_cast<char>(prefix));
    }
    key.append(path_, 0, ends_[level]);
    return key.size() <= sharedPrefix.size() + maxKey ? key : std::string();
}

bool SharedQuestion::isCoveredBy(std::size_t level, std::uint16_t port, std::string_view rest) const {
    const std::string_view asked = std::string_view(path_).substr(ends_[level]);
    return (port == 0 || port == port_) && asked.substr(0, rest.size()) == rest &&
           (rest.empty() || endsAtBoundary(asked.data(), asked.size(), rest.size()));
}

bool SharedQuestion::add(const Values& values, Answer* answer) const {
    for (std::size_t level = sharedLevels; level-- > 0;) {
        GroupCursor entry(values[level]);
        while (entry.next()) {
            if (!isCoveredBy(level, entry.port, entry.rest)) continue;
            answer->covered = true;
            std::size_t category = 0;
            while (GroupCursor::takeNumber(&entry.categories, &category))
                answer->add(static_cast<std::uint16_t>(category));
            if (entry.instead) return false;
        }
    }
    return true;
}

}  // namespace catalog
