// The catalogue that is served, whatever happens to its file.
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

// Serves one path. A new file at the path is noticed and used within half a second, changes in the file with
// the next question. Where the new file is no good, the old one goes on, with one message on standard error.
// Any thread may ask; a question waits for no other thread's disk and for no new file, except that a file
// which was torn from under it is looked at once more.
class Live {
public:
    // Null on failure, with a sentence.
    static std::unique_ptr<Live> open(const std::string& path, std::string* failure);
    ~Live();
    Live(const Live&) = delete;
    Live& operator=(const Live&) = delete;

    // Calls use(answer) with what the catalogue has for the URL; the answer is gone when it returns. A text
    // that is no URL is covered by nothing. False with a sentence when the file cannot be read.
    template <typename Use>
    bool classify(const char* url, std::string* failure, Use use) {
        SlotUse slot(this);
        const catalog::Answer* const answer = classifyIn(slot.get(), url, failure);
        if (answer == nullptr) return false;
        use(*answer);
        return true;
    }

    // Looks at the path now, as the thread behind does twice a second.
    void poll();

private:
    // What a look-up needs. As many as threads can look up at once on a common machine, so that idle threads
    // keep neither memory nor an old file.
    struct alignas(64) Slot {
        std::mutex mutex;
        std::uint64_t generation = 0;
        std::unique_ptr<catalog::Reader> reader;
        catalog::Url url;
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

    // What stat(2) says of a file that was refused: it is tried again when that changes.
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
    std::string reported_;  // guarded by reportMutex_: the last message
    std::mutex stopMutex_;
    std::condition_variable stopped_;
    bool stop_ = false;  // guarded by stopMutex_
    std::thread watcher_;
};

}  // namespace engine

#endif
