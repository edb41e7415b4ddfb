#include "LogFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace katd_test {

namespace {

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// The offset of a record's text, after "YYYY-MM-DD hh:mm:ss<tab>debug<tab>"; 0 for anything else.
std::size_t textBegin(std::string_view line) {
    constexpr std::string_view form = "0000-00-00 00:00:00\tdebug\t";
    if (line.size() < form.size()) return 0;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool right = form[i] == '0' ? line[i] >= '0' && line[i] <= '9' : line[i] == form[i];
        if (!right) return 0;
    }
    return form.size();
}

}  // namespace

LogFiles::~LogFiles() {
    for (const auto& [inode, fd] : read_)
        close(fd);
}

void LogFiles::collect() {
    std::map<ino_t, int> present;
    std::vector<int> unread;
    ino_t newest = 0;
    // In ascending order, as files move: one that moves now is still ahead. There may be gaps.
    for (int number = 1; number <= limit_; ++number) {
        const int fd = open((path_ + "." + std::to_string(number)).c_str(), O_RDONLY | O_CLOEXEC);
        struct stat file {};
        if (fd < 0 || fstat(fd, &file) != 0) continue;
        if (newest == 0) newest = file.st_ino;
        const auto known = read_.find(file.st_ino);
        if (known != read_.end()) {
            close(fd);
            present.insert(*known);
            read_.erase(known);
        } else if (present.emplace(file.st_ino, fd).second) {
            unread.push_back(fd);
        } else {
            close(fd);  // moved, and met again
        }
    }
    if (newest_ != 0 && present.count(newest_) == 0)
        findings_.add("the log rotates faster than the soak reads it: its records cannot be checked");
    if (newest != 0) newest_ = newest;
    std::for_each(unread.rbegin(), unread.rend(), [this](int fd) { readFile(fd); });
    rotations_ += static_cast<unsigned>(unread.size());
    read_.swap(present);
    for (const auto& [inode, fd] : present)
        close(fd);
}

void LogFiles::finish(const std::vector<unsigned>& markersSent) {
    collect();
    if (access((path_ + ".0").c_str(), F_OK) == 0) findings_.add("a log file was left at \".0\"");
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    readFile(fd);
    close(fd);
    for (std::size_t client = 0; client < markersSent.size(); ++client) {
        if (nextMarker_[client] == markersSent[client]) continue;
        findings_.add("log records lost: of " + std::to_string(markersSent[client]) + " markers of client " +
                      std::to_string(client) + " the last seen is number " +
                      std::to_string(nextMarker_[client]));
    }
    // Each message is three records.
    if (tags_ != empty_ || records_ != 3 * tags_) {
        findings_.add("log records lost: " + std::to_string(tags_) + " begin a message, " +
                      std::to_string(empty_) + " end one, " + std::to_string(records_) + " in all");
    }
}

void LogFiles::readFile(int fd) {
    std::string text;
    char piece[65536];
    ssize_t size = 0;
    while ((size = read(fd, piece, sizeof(piece))) > 0)
        text.append(piece, static_cast<std::size_t>(size));
    if (size < 0) findings_.add("a log file cannot be read");
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        if (end == rest.npos) {
            findings_.add("a log file ends within a record: " + std::string(rest));
            return;
        }
        readRecord(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
}

void LogFiles::readRecord(std::string_view line) {
    const std::size_t begin = textBegin(line);
    if (begin == 0) {
        findings_.add("a torn log record: " + std::string(line.substr(0, 200)));
        return;
    }
    ++records_;
    const std::string_view text = line.substr(begin);
    constexpr std::string_view unknownRequest = "Unknown ctrl request [";
    if (text.empty()) ++empty_;
    for (const char* tag : {"[DBG][", "[INF][", "[ERR]["})
        if (startsWith(text, tag)) ++tags_;
    if (startsWith(text, "All urls [")) statistics_ = text;
    if (startsWith(text, unknownRequest)) readMarker(text.substr(unknownRequest.size()));
}

void LogFiles::readMarker(std::string_view text) {
    unsigned client = 0;
    unsigned number = 0;
    char last = 0;
    if (std::sscanf(std::string(text).c_str(), "marker %u %u%c", &client, &number, &last) != 3 ||
        last != ']' || client >= nextMarker_.size()) {
        findings_.add("a record of a marker that must not be logged: " + std::string(text));
        return;
    }
    if (number != nextMarker_[client]) {
        findings_.add("log records lost, repeated or out of order: marker " + std::to_string(number) +
                      " of client " + std::to_string(client) + " instead of " +
                      std::to_string(nextMarker_[client]));
    }
    nextMarker_[client] = number + 1;
}

}  // namespace katd_test
