// The lines that squid writes.
#ifndef KATC_HELPERINPUT_H
#define KATC_HELPERINPUT_H

#include <cstddef>
#include <string>
#include <vector>

namespace katc {

// Reads lines from a descriptor with as few calls as there can be: what one read brings is kept until it is
// taken. For one thread at a time. The descriptor is the caller's.
class HelperInput {
public:
    // hasChannels: the first word of a line is not part of the question.
    HelperInput(int fd, bool hasChannels)
        : fd_(fd), hasChannels_(hasChannels), buffer_(std::size_t{64} * 1024) {}

    // Replaces *lines by one to `limit` lines, each with its line feed; waits when there is none, but never
    // for more than one. Of a line beyond 1 MiB no more is kept than its channel-ID, and a blank where there
    // are none. A last line may lack its line feed in the input. False: the input has ended, or, when error()
    // is not 0, cannot be read.
    bool take(std::size_t limit, std::string* lines);
    int error() const { return error_; }  // of errno(3)

private:
    std::size_t wholeLines(std::size_t limit);
    void makeRoom();
    void receive();
    void dropRestOfLine(std::size_t received);

    const int fd_;
    const bool hasChannels_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0, end_ = 0;  // what lies in the buffer
    std::size_t searched_ = 0;  // up to here the buffer holds no line feed; only while there is no whole line
    bool isDropping_ = false;   // the rest of a line that is too long is on its way
    bool isAtEnd_ = false;
    int error_ = 0;
};

}  // namespace katc

#endif
