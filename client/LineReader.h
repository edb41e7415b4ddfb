// Lines of a descriptor.
#ifndef KATC_LINEREADER_H
#define KATC_LINEREADER_H

#include <cstddef>
#include <string>
#include <vector>

namespace katc {

// Reads with few system calls: what one read(2) returns is kept until it is taken. Not thread-safe. Does not
// own the descriptor.
class LineReader {
public:
    static constexpr std::size_t unlimited = static_cast<std::size_t>(-1) / 4;

    // Lines of about `maxLine` bytes and more are cut: to their first word if keepsFirstWord, else to one
    // blank, because part of a URL would be a different URL.
    explicit LineReader(int fd, std::size_t maxLine = unlimited, bool keepsFirstWord = false)
        : fd_(fd), maxLine_(maxLine), keepsFirstWord_(keepsFirstWord), buffer_(std::size_t{64} * 1024) {}

    // Replaces *lines by 1 to `limit` lines, each with its line feed. Waits for one line if there is none,
    // never for more. The last line of the input may lack its line feed; it gets one. False: the input has
    // ended or, if error() is not 0, cannot be read.
    bool take(std::size_t limit, std::string* lines);
    int error() const { return error_; }  // as errno

private:
    std::size_t wholeLines(std::size_t limit);
    void makeSpace();
    void receive();
    void dropRestOfLine(std::size_t received);

    const int fd_;
    const std::size_t maxLine_;
    const bool keepsFirstWord_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0, end_ = 0;  // [begin_, end_) has been received and not taken
    std::size_t searched_ = 0;         // no line feed in [begin_, searched_)
    bool isDropping_ = false;          // the rest of a line that was cut is still to come
    bool isAtEnd_ = false;
    int error_ = 0;
};

}  // namespace katc

#endif
