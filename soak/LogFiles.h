// Reads katd's log while it rotates, every file once and in order, and checks every line.
#ifndef KATD_TESTS_LOGFILES_H
#define KATD_TESTS_LOGFILES_H

#include <sys/types.h>

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Findings.h"

namespace katd_test {

// Not thread-safe, except rotations().
class LogFiles {
public:
    // path: the live file; limit: how many rotated files are kept; markers: how many clients send numbered
    // markers.
    LogFiles(const std::string& path, int limit, unsigned markers, Findings& findings)
        : path_(path), limit_(limit), findings_(findings), nextMarker_(markers) {}
    ~LogFiles();
    LogFiles(const LogFiles&) = delete;
    LogFiles& operator=(const LogFiles&) = delete;

    // Reads what was rotated since the last call. Must be called before another `limit` rotations.
    void collect();
    // Reads the rest and checks the whole. katd must write nothing any more.
    void finish(const std::vector<unsigned>& markersSent);

    unsigned rotations() const { return rotations_; }
    unsigned long records() const { return records_; }
    // The latest statistics message.
    const std::string& statistics() const { return statistics_; }

private:
    void readFile(int fd);
    void readRecord(std::string_view line);
    void readMarker(std::string_view text);

    const std::string path_;
    const int limit_;
    Findings& findings_;
    std::atomic<unsigned> rotations_{0};
    // The rotated files that were read and still exist, by inode. They stay open, so that no new file gets
    // one of these inodes.
    std::map<ino_t, int> read_;
    ino_t newest_ = 0;  // of ".1" at the last call; 0: none
    unsigned long records_ = 0;
    unsigned long tags_ = 0;   // records that begin a message
    unsigned long empty_ = 0;  // records that end one
    std::vector<unsigned> nextMarker_;
    std::string statistics_;
};

}  // namespace katd_test

#endif
