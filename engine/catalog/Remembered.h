// What a shared store has answered.
#ifndef KATD_ENGINE_REMEMBERED_H
#define KATD_ENGINE_REMEMBERED_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace engine {

// Records of a shared store by their keys; an empty value stands for a record that the store does not have.
// Each is forgotten when its time is over, when the store has another version, and when there are too many:
// then those that were not used lately go first. Thread-safe.
class Remembered {
public:
    // All records that were learnt from one version of the store.
    using Generation = std::uint32_t;

    Remembered(std::size_t limit, std::chrono::seconds lifetime);

    // Says which version the store has now. All records of other versions are forgotten.
    Generation setVersion(std::string_view version);

    // Copies the value; false if it is not known.
    bool find(const std::string& key, std::string* value);
    // Does nothing if the generation is over.
    void put(Generation generation, const std::string& key, const std::string& value);

    // Writes all records to the file. False with errno set if that fails.
    bool save(std::FILE* file);
    // Replaces all records by those of a saved file, unless the store is known to have another version by
    // now. False, with nothing changed, if the text is not the whole of such a file.
    bool load(std::string_view text);

private:
    using Clock = std::chrono::steady_clock;
    struct Record {
        std::string value;
        Clock::time_point end;
        Generation generation;
    };
    using Records = std::unordered_map<std::string, Record>;
    // The records are distributed over several tables, so that threads seldom wait for each other, and never
    // long for a table that grows. A table forgets half of its records at once: `old` are those that were not
    // used since the last time.
    struct Table {
        std::mutex mutex;
        Records young;
        Records old;
    };

    Table& tableOf(const std::string& key);
    void insert(Generation generation, const std::string& key, const std::string& value,
                Clock::time_point end);

    const std::chrono::seconds lifetime_;
    std::vector<Table> tables_;
    const std::size_t half_;  // of the records that a table may hold
    std::atomic<Generation> generation_{0};
    std::mutex versionMutex_;  // taken before the mutex of a table
    std::string version_;      // of the current generation, empty: not known; guarded by versionMutex_
};

}  // namespace engine

#endif
