#include "Remembered.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace engine {

namespace {

constexpr std::size_t manyTables = 64;
constexpr std::size_t fewRecords = 1024;  // for which one table is enough

constexpr std::string_view fileFormat = "katd-catalog-cache 2 ";

// What precedes the key and the value of a record in the file. The end is in seconds since 1970.
struct FileRecord {
    std::uint64_t end;
    std::uint32_t keySize;
    std::uint32_t valueSize;
};
using Checksum = std::uint64_t;

Checksum addToChecksum(Checksum sum, std::string_view text) {
    for (const char c : text) {
        sum ^= static_cast<unsigned char>(c);
        sum *= 0x100000001b3U;
    }
    return sum;
}
constexpr Checksum firstChecksum = 0xcbf29ce484222325U;

std::uint64_t sinceEpoch() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
}

}  // namespace

Remembered::Remembered(std::size_t limit, std::chrono::seconds lifetime)
    : lifetime_(lifetime), tables_(limit < fewRecords ? 1 : manyTables), half_(limit / tables_.size() / 2) {}

Remembered::Table& Remembered::tableOf(const std::string& key) {
    // Not the bits by which the table itself finds it.
    return tables_[(std::hash<std::string>()(key) >> 20U) % tables_.size()];
}

Remembered::Generation Remembered::setVersion(std::string_view version) {
    const std::lock_guard<std::mutex> guard(versionMutex_);
    if (version_ != version) {
        version_ = version;
        ++generation_;
    }
    return generation_;
}

bool Remembered::find(const std::string& key, std::string* value) {
    Table& table = tableOf(key);
    const std::lock_guard<std::mutex> guard(table.mutex);
    auto found = table.young.find(key);
    const bool isOld = found == table.young.end();
    if (isOld && (found = table.old.find(key)) == table.old.end()) return false;
    if (found->second.generation != generation_ || found->second.end <= Clock::now()) return false;
    *value = found->second.value;
    if (isOld && table.young.size() < half_) table.young.insert(table.old.extract(found));
    return true;
}

void Remembered::put(Generation generation, const std::string& key, const std::string& value) {
    insert(generation, key, value, Clock::now() + lifetime_);
}

void Remembered::insert(Generation generation, const std::string& key, const std::string& value,
                        Clock::time_point end) {
    if (half_ == 0 || generation != generation_) return;
    Records forgotten;  // freed without the lock
    Table& table = tableOf(key);
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.old.erase(key);
    const auto known = table.young.find(key);
    if (known != table.young.end()) {
        known->second = {value, end, generation};
        return;
    }
    if (table.young.size() >= half_) {
        forgotten.swap(table.old);
        table.old.swap(table.young);
    }
    table.young.emplace(key, Record{value, end, generation});
}

bool Remembered::save(std::FILE* file) {
    Checksum sum = firstChecksum;
    std::string text;
    const auto write = [&] {
        sum = addToChecksum(sum, text);
        return std::fwrite(text.data(), 1, text.size(), file) == text.size();
    };
    Generation generation = 0;
    {
        const std::lock_guard<std::mutex> guard(versionMutex_);
        text = std::string(fileFormat).append(version_).append("\n");
        generation = generation_;
    }
    if (!write()) return false;
    const auto now = Clock::now();
    const auto today = sinceEpoch();
    for (Table& table : tables_) {
        text.clear();
        {
            const std::lock_guard<std::mutex> guard(table.mutex);
            for (const Records* const records : {&table.old, &table.young}) {
                for (const auto& [key, record] : *records) {
                    if (record.generation != generation || record.end <= now) continue;
                    const auto left = std::chrono::duration_cast<std::chrono::seconds>(record.end - now);
                    const FileRecord head{today + static_cast<std::uint64_t>(left.count()),
                                          static_cast<std::uint32_t>(key.size()),
                                          static_cast<std::uint32_t>(record.value.size())};
                    text.append(reinterpret_cast<const char*>(&head), sizeof head);
                    text.append(key).append(record.value);
                }
            }
        }
        if (!write()) return false;
    }
    return std::fwrite(&sum, sizeof sum, 1, file) == 1;
}

bool Remembered::load(std::string_view text) {
    const auto lineEnd = text.find('\n');
    Checksum sum = 0;
    if (text.substr(0, fileFormat.size()) != fileFormat || lineEnd == text.npos ||
        text.size() - lineEnd - 1 < sizeof sum)
        return false;
    const std::size_t size = text.size() - sizeof sum;
    std::memcpy(&sum, text.data() + size, sizeof sum);
    if (sum != addToChecksum(firstChecksum, text.substr(0, size))) return false;
    Generation generation = 0;
    {
        const std::string_view version = text.substr(fileFormat.size(), lineEnd - fileFormat.size());
        const std::lock_guard<std::mutex> guard(versionMutex_);
        if (!version_.empty() && version_ != version) return true;
        version_ = version;
        generation = ++generation_;
    }
    const auto now = Clock::now();
    const auto today = sinceEpoch();
    std::string_view left = text.substr(lineEnd + 1, size - lineEnd - 1);
    FileRecord head{};
    while (left.size() >= sizeof head) {
        std::memcpy(&head, left.data(), sizeof head);
        left.remove_prefix(sizeof head);
        if (left.size() < std::uint64_t{head.keySize} + head.valueSize) break;
        if (head.end > today) {
            // Another clock must not make a record last longer than usual.
            const std::chrono::seconds life(static_cast<std::int64_t>(
                std::min(head.end - today, static_cast<std::uint64_t>(lifetime_.count()))));
            insert(generation, std::string(left.substr(0, head.keySize)),
                   std::string(left.substr(head.keySize, head.valueSize)), now + life);
        }
        left.remove_prefix(head.keySize + head.valueSize);
    }
    return true;
}

}  // namespace engine
