#ifndef KATD_BENCH_STREAM_H
#define KATD_BENCH_STREAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Load.h"

namespace bench {

// One busy connection: it asks all questions in turn, from `first` on, over and over.
class Stream {
public:
    Stream(int fd, const Questions& questions, unsigned first, unsigned window);

    int fd() const { return fd_; }
    // Fills the window with further requests.
    void send();
    // Takes the answers that are there, or waits for one. False when it was interrupted.
    bool receive(Schedule* schedule);

private:
    void verify(const char* bytes, std::size_t size) const;
    void countAnswers(std::uint64_t now, Schedule* schedule);

    const Questions& questions_;
    const int fd_;
    const unsigned window_;
    unsigned next_;     // question to send
    unsigned awaited_;  // question whose answer comes next
    unsigned underWay_ = 0;
    std::size_t replyAt_;                // place in the replies of the byte that comes next
    std::vector<std::uint64_t> sentAt_;  // by the number of the request modulo window
    unsigned sentSlot_ = 0;
    unsigned awaitedSlot_ = 0;
};

}  // namespace bench

#endif
