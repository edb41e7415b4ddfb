#include "Cache.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "asapsdk.h"

namespace asapsdk {

namespace {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, CloseFile>;

std::uint64_t checksum(std::string_view text) {
    std::uint64_t sum = 0xcbf29ce484222325U;
    for (const char c : text) {
        sum ^= static_cast<unsigned char>(c);
        sum *= 0x100000001b3U;
    }
    return sum;
}

std::string headerLine(std::size_t count, std::string_view body) {
    char line[80];
    std::snprintf(line, sizeof line, "asapsdk-cache 1 %zu %016" PRIx64 "\n", count, checksum(body));
    return line;
}

Failure fileFailure(const char* verb, const std::string& path, int error) {
    return {ASAPSDK_BAD_CACHE, error,
            std::string("cannot ") + verb + " " + path + ": " + std::strerror(error)};
}

}  // namespace

void Cache::learn(const std::string& url, const Categories& categories) {
    const std::lock_guard<std::mutex> guard(mutex_);
    learnLocked(url, categories);
}

void Cache::learnLocked(const std::string& url, const Categories& categories) {
    if (maxEntries_ == 0) return;
    Entries added{{url, categories}};
    const auto [place, isNew] = byUrl_.try_emplace(url, added.begin());
    if (!isNew) {
        entries_.erase(place->second);
        place->second = added.begin();
    }
    entries_.splice(entries_.end(), added);
    if (entries_.size() > maxEntries_) {
        byUrl_.erase(entries_.front().url);
        entries_.pop_front();
    }
}

std::optional<Categories> Cache::find(const std::string& url) const {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = byUrl_.find(url);
    if (found == byUrl_.end()) return std::nullopt;
    return found->second->categories;
}

bool Cache::parse(std::string_view text, Entries* entries) {
    const auto headerEnd = text.find('\n');
    if (headerEnd == text.npos) return false;
    const std::string_view body = text.substr(headerEnd + 1);
    for (std::string_view rest = body; !rest.empty();) {
        const auto end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        const auto blank = line.find(' ');
        Entry entry;
        if (end == rest.npos || blank == line.npos) return false;
        if (!parseCategories(line.substr(0, blank), &entry.categories)) return false;
        if (!unescape(line.substr(blank + 1), &entry.url)) return false;
        entries->push_back(std::move(entry));
        rest.remove_prefix(end + 1);
    }
    return text.substr(0, headerEnd + 1) == headerLine(entries->size(), body);
}

bool Cache::load(const std::string& path, Failure* failure) {
    const FileHandle file(std::fopen(path.c_str(), "re"));
    if (!file) {
        *failure = fileFailure("open", path, errno);
        return false;
    }
    std::string text;
    char piece[16384];
    while (const std::size_t size = std::fread(piece, 1, sizeof piece, file.get()))
        text.append(piece, size);
    if (std::ferror(file.get())) {
        *failure = fileFailure("read", path, errno);
        return false;
    }
    Entries entries;
    if (!parse(text, &entries)) {
        *failure = {ASAPSDK_BAD_CACHE, 0, path + " is no cache file, or it is cut or damaged"};
        return false;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    byUrl_.clear();
    entries_.clear();
    for (const Entry& entry : entries)
        learnLocked(entry.url, entry.categories);
    return true;
}

bool Cache::save(const std::string& path, bool whole, Failure* failure) const {
    std::string body;
    std::size_t count = 0;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        count = entries_.size();
        for (const Entry& entry : entries_) {
            body += toText(entry.categories);
            body += ' ';
            body += escaped(entry.url);
            body += '\n';
        }
    }
    std::string text = headerLine(count, body) + body;
    if (!whole) text.resize(text.size() / 2);
    FileHandle file(std::fopen(path.c_str(), "we"));
    if (!file) {
        *failure = fileFailure("open", path, errno);
        return false;
    }
    if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
        std::fclose(file.release()) != 0) {
        *failure = fileFailure("write", path, errno);
        return false;
    }
    return true;
}

}  // namespace asapsdk
