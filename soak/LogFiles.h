// Reads katd's log while it rotates, every file once and in order, and judges every line.
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

// One thread at a time may call it; rotations() is for all.
class LogFiles {
public:
    // The log keeps `limit` rotated files beside the one at `path`. `markers` clients send numbered markers.
    LogFiles(const std::string& path, int limit, unsigned markers, Findings& findings)
        : path_(path), limit_(limit), findings_(findings), nextMarker_(markers) {}
    ~LogFiles();
    LogFiles(const LogFiles&) = delete;
    LogFiles& operator=(const LogFiles&) = delete;

    // Reads what was rotated since the last call. To be called before another `limit` files are.
    void collect();
    // Reads all the rest, when katd writes nothing any more, and judges the whole.
    void finish(const std::vector<unsigned>& markersSent);

    unsigned rotations() const { return rotations_; }
    unsigned long records() const { return records_; }
    // The last message of katd's statistics.
    const std::string& statistics() const { return statistics_; }

private:
    void readFile(int fd);
    void readRecord(std::string_view line);
    void readMarker(std::string_view text);

    const std::string path_;
    const int limit_;
    Findings& findings_;
    std::atomic<unsigned> rotations_{0};
    // The rotated files that were read and are still there, by inode. They are kept open: no new file can get
    // the inode of one that is among them.
    std::map<ino_t, int> read_;
    ino_t newest_ = 0;  // that of ".1" at the last call; 0: there was none
    unsigned long records_ = 0;
    unsigned long tags_ = 0;   // records that open a message
    unsigned long empty_ = 0;  // records that close one
    std::vector<unsigned> nextMarker_;
    std::string statistics_;
};

}  // namespace katd_test

#endif
