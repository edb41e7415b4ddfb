#ifndef KATD_BENCH_STREAM_H
#define KATD_BENCH_STREAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Load.h"

namespace bench {

// One busy connection, which asks all questions in turn, starting with `first`, repeatedly.
class Stream {
public:
    Stream(int fd, const Questions& questions, unsigned first, unsigned window);

    int fd() const { return fd_; }
    // Sends requests until the window is full.
    void send();
    // Receives the available answers, or waits for one. False if interrupted.
    bool receive(Schedule* schedule);

private:
    void verify(const char* bytes, std::size_t size) const;
    void countAnswers(std::uint64_t now, Schedule* schedule);

    const Questions& questions_;
    const int fd_;
    const unsigned window_;
    unsigned next_;     // question to send
    unsigned awaited_;  // question whose answer is next
    unsigned underWay_ = 0;
    std::size_t replyAt_;                // offset of the next byte in the replies
    std::vector<std::uint64_t> sentAt_;  // by request number modulo window
    unsigned sentSlot_ = 0;
    unsigned awaitedSlot_ = 0;
};

}  // namespace bench

#endif
