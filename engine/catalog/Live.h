// Serves a catalogue file and follows its changes.
#ifndef KATD_ENGINE_LIVE_H
#define KATD_ENGINE_LIVE_H

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "catalog/Catalog.h"

namespace engine {

// Serves the file at one path. A new file at the path is used within half a second, a change in the file with
// the next question. If the new file is unusable, the old one stays in use and one message goes to standard
// error. Thread-safe. Questions do not wait for each other's disk access or for a new file to be opened,
// except when the file has outgrown its mapping.
class Live {
public:
    // Null on failure; *failure is then a sentence.
    static std::unique_ptr<Live> open(const std::string& path, std::string* failure);
    ~Live();
    Live(const Live&) = delete;
    Live& operator=(const Live&) = delete;

    // Calls use(answer, url) with the answer and the normalised URL, which are valid during that call only.
    // `url` is null if the string is not a URL, which no entry covers. False with a sentence in *failure if
    // the file cannot be read.
    template <typename Use>
    bool classify(const char* url, std::string* failure, Use use) {
        SlotUse slot(this);
        const catalog::Answer* const answer = classifyIn(slot.get(), url, failure);
        if (answer == nullptr) return false;
        use(*answer, slot.get()->isUrl ? &slot.get()->url : nullptr);
        return true;
    }

    // Checks for a new file now. The watching thread does so every 400 ms.
    void poll();

private:
    // The state of a look-up. Slots are shared by all threads, so that idle threads hold neither memory nor
    // an old file; there are as many as a usual machine runs threads at once.
    struct alignas(64) Slot {
        std::mutex mutex;
        std::uint64_t generation = 0;
        std::unique_ptr<catalog::Reader> reader;
        catalog::Url url;
        bool isUrl = false;
        catalog::Answer answer;
    };
    static constexpr std::size_t slotCount = 32;

    class SlotUse {
    public:
        explicit SlotUse(Live* live);
        ~SlotUse() { slot_->mutex.unlock(); }
        SlotUse(const SlotUse&) = delete;
        SlotUse& operator=(const SlotUse&) = delete;
        Slot* get() const { return slot_; }

    private:
        Slot* slot_;
    };

    // Identifies a file that was refused; it is tried again when its inode, size or time changes.
    struct Refused {
        std::uint64_t inode = 0;
        std::uint64_t size = 0;
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;

        bool operator==(const Refused& other) const {
            return inode == other.inode && size == other.size && seconds == other.seconds &&
                   nanoseconds == other.nanoseconds;
        }
    };

    explicit Live(const std::string& path) : path_(path) {}

    const catalog::Answer* classifyIn(Slot* slot, const char* url, std::string* failure);
    void publish(std::shared_ptr<catalog::Catalog> catalog);
    void openAgain(std::uint64_t generation);
    void report(const std::string& sentence);
    void watch();

    const std::string path_;
    std::array<Slot, slotCount> slots_;
    std::atomic<std::uint64_t> generation_{0};
    std::mutex currentMutex_;
    std::shared_ptr<catalog::Catalog> current_;  // guarded by currentMutex_
    std::mutex pollMutex_;
    Refused refused_;  // guarded by pollMutex_
    std::mutex reportMutex_;
    std::string reported_;  // the last message; guarded by reportMutex_
    std::mutex stopMutex_;
    std::condition_variable stopped_;
    bool stop_ = false;  // guarded by stopMutex_
    std::thread watcher_;
};

}  // namespace engine

#endif
