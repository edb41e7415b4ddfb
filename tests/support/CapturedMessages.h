// Collects the daemon's messages from all threads during its lifetime. One at a time.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "KatdUtil/Utils.h"

namespace katd_test {

using Texts = std::vector<std::string>;

class CapturedMessages {
public:
    explicit CapturedMessages(int level = 3)
        : oldLevel_(KATD_SPACE::ops.logLevel), oldOutput_(KATD_SPACE::ops.output) {
        clear();
        KATD_SPACE::ops.logLevel = level;
        KATD_SPACE::ops.output = take;
    }
    ~CapturedMessages() {
        KATD_SPACE::ops.output = oldOutput_;
        KATD_SPACE::ops.logLevel = oldLevel_;
    }
    CapturedMessages(const CapturedMessages&) = delete;
    CapturedMessages& operator=(const CapturedMessages&) = delete;

    // Each message as standard output would have it, without the line feed: "[ERR][StringList:7] fail".
    Texts lines() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return lines_;
    }
    // Each message as its level and its text: "ERR fail".
    Texts texts() const {
        Texts result = lines();
        for (std::string& line : result)
            line = line.substr(1, 3) + line.substr(line.find("] ") + 1);
        return result;
    }
    void clear() {
        const std::lock_guard<std::mutex> guard(mutex_);
        lines_.clear();
    }

private:
    // A message arrives in three pieces: tag, text, line feed.
    static void take(const char* piece) {
        thread_local std::string line;
        if (std::string(piece) != "\n") {
            line += piece;
            return;
        }
        const std::lock_guard<std::mutex> guard(mutex_);
        if (!line.empty()) lines_.push_back(line);
        line.clear();
    }

    static inline std::mutex mutex_;
    static inline Texts lines_;
    std::int32_t oldLevel_;
    void (*oldOutput_)(const char*);
};

}  // namespace katd_test
