#include "Live.h"

#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "SignalsBlocked.h"
#include "catalog/Guard.h"

namespace engine {

using catalog::Catalog;
using catalog::Reader;

namespace {

constexpr std::chrono::milliseconds interval{400};

}  // namespace

std::unique_ptr<Live> Live::open(const std::string& path, std::string* failure) {
    std::unique_ptr<Live> live(new Live(path));
    catalog::installFaultGuard();
    std::shared_ptr<Catalog> catalog = Catalog::open(path, failure);
    if (!catalog) return nullptr;
    live->publish(std::move(catalog));
    const SignalsBlocked blocked;
    try {
        live->watcher_ = std::thread(&Live::watch, live.get());
    } catch (const std::system_error& error) {
        *failure = std::string("cannot start the thread that watches the catalogue: ") + error.what();
        live.reset();
    }
    return live;
}

Live::~Live() {
    {
        const std::lock_guard<std::mutex> guard(stopMutex_);
        stop_ = true;
    }
    stopped_.notify_all();
    if (watcher_.joinable()) watcher_.join();
    for (Slot& slot : slots_)
        slot.reader.reset();
    current_.reset();
    catalog::uninstallFaultGuard();
}

void Live::watch() {
    std::unique_lock<std::mutex> lock(stopMutex_);
    while (!stopped_.wait_for(lock, interval, [this] { return stop_; })) {
        lock.unlock();
        try {
            poll();
        } catch (const std::exception&) {
            // Out of memory: try again at the next interval.
        }
        lock.lock();
    }
}

void Live::report(const std::string& sentence) {
    const std::lock_guard<std::mutex> guard(reportMutex_);
    if (reported_ == sentence) return;
    reported_ = sentence;
    std::fprintf(stderr, "katd-engine-catalog: %s\n", sentence.c_str());
}

void Live::poll() {
    const std::lock_guard<std::mutex> guard(pollMutex_);
    std::shared_ptr<Catalog> current;
    {
        const std::lock_guard<std::mutex> currentGuard(currentMutex_);
        current = current_;
    }
    struct stat state {};
    if (stat(path_.c_str(), &state) != 0) {
        report("catalogue " + path_ + ": " + std::strerror(errno) + "; the old one is still used");
        return;
    }
    const bool same = state.st_dev == current->device() && state.st_ino == current->inode();
    const auto size = static_cast<std::uint64_t>(state.st_size);
    // Map a growing file again here, before a question has to.
    if (same && size < current->mappedSize() - current->mappedSize() / 8) return;
    const Refused state2{state.st_ino, size, state.st_mtim.tv_sec, state.st_mtim.tv_nsec};
    if (state2 == refused_) return;
    std::string failure;
    std::shared_ptr<Catalog> catalog = Catalog::open(path_, &failure);
    if (catalog) {
        publish(std::move(catalog));
        refused_ = Refused();
        const std::lock_guard<std::mutex> reportGuard(reportMutex_);
        reported_.clear();
    } else {
        refused_ = state2;
        report(failure + "; the old one is still used");
    }
}

// Drops the readers of the old file: an idle slot would otherwise keep it open for good.
void Live::publish(std::shared_ptr<Catalog> catalog) {
    std::uint64_t generation = 0;
    {
        const std::lock_guard<std::mutex> guard(currentMutex_);
        current_.swap(catalog);
        generation = ++generation_;
    }
    for (Slot& slot : slots_) {
        const std::lock_guard<std::mutex> guard(slot.mutex);
        if (slot.generation != generation) slot.reader.reset();
    }
}

// For a file that outgrew its mapping between two polls. The caller holds its slot's mutex and must not take
// the others', so their readers are replaced at their next questions.
void Live::openAgain(std::uint64_t generation) {
    const std::lock_guard<std::mutex> guard(currentMutex_);
    if (generation_ != generation) return;
    std::string failure;
    std::shared_ptr<Catalog> catalog = Catalog::open(path_, &failure);
    if (!catalog) return;
    current_.swap(catalog);
    ++generation_;
}

Live::SlotUse::SlotUse(Live* live) : slot_(nullptr) {
    const auto thread = static_cast<std::uintptr_t>(pthread_self());
    const std::size_t first = (thread >> 12U) * 0x9e3779b1U >> 7U;
    for (std::size_t i = 0; i < slotCount; ++i) {
        slot_ = &live->slots_[(first + i) % slotCount];
        if (slot_->mutex.try_lock()) return;
    }
    slot_->mutex.lock();
}

const catalog::Answer* Live::classifyIn(Slot* slot, const char* url, std::string* failure) {
    slot->answer.covered = false;
    slot->answer.count = 0;
    slot->isUrl = catalog::readUrl(url, &slot->url) == nullptr;
    if (!slot->isUrl) return &slot->answer;
    Reader::Status status = Reader::damaged;
    for (int attempt = 0; attempt < 4; ++attempt) {
        if (!slot->reader || slot->generation != generation_.load()) {
            std::shared_ptr<Catalog> current;
            {
                const std::lock_guard<std::mutex> guard(currentMutex_);
                current = current_;
                slot->generation = generation_;
            }
            slot->reader = std::make_unique<Reader>(std::move(current));
        }
        status = slot->reader->classify(slot->url, &slot->answer);
        if (status == Reader::done) return &slot->answer;
        slot->reader.reset();
        if (status == Reader::grown) {
            openAgain(slot->generation);
        } else if (attempt > 0) {
            // A commit during the look-up can look like damage once, but not twice.
            break;
        }
    }
    *failure = "catalogue " + path_ + ": the file is damaged or was cut; recreate it with katcatalog import";
    report(*failure);
    return nullptr;
}

}  // namespace engine
