// What went wrong. Thread-safe. The first finding ends the soak.
#ifndef KATD_TESTS_FINDINGS_H
#define KATD_TESTS_FINDINGS_H

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace katd_test {

class Findings {
public:
    void add(const std::string& text) {
        const std::lock_guard<std::mutex> guard(mutex_);
        // One fault shows up in many places.
        constexpr std::size_t ENOUGH = 20;
        if (texts_.size() < ENOUGH) texts_.push_back(text);
        any_ = true;
    }
    bool any() const { return any_; }
    std::vector<std::string> texts() {
        const std::lock_guard<std::mutex> guard(mutex_);
        return texts_;
    }

private:
    std::atomic<bool> any_{false};
    std::mutex mutex_;
    std::vector<std::string> texts_;  // guarded by mutex_
};

}  // namespace katd_test

#endif
