// The lines of standard input, as they come.
#ifndef KATC_LINES_H
#define KATC_LINES_H

#include <cstddef>
#include <string_view>
#include <vector>

namespace katc {

// Reads what there is, and hands out whole lines of it. For one thread.
class Lines {
public:
    // Up to `limit` lines that have been read, without their ends: more are read, which may wait, only when
    // there is none. Valid until the next call. None at the end of the input and when it cannot be read:
    // `error` then is 0 or the errno.
    const std::vector<std::string_view>& next(std::size_t limit);

    int error = 0;

private:
    bool read();
    bool take();

    static constexpr std::size_t piece = 65536;  // asked for at once

    std::vector<char> bytes_;
    std::size_t start_ = 0;  // [start_, end_) of bytes_ is read and not handed out
    std::size_t end_ = 0;
    std::size_t scanned_ = 0;  // bytes from start_ on without a line feed
    bool isOver_ = false;
    std::vector<std::string_view> lines_;
};

}  // namespace katc

#endif
