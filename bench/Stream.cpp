#include "Stream.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "Fail.h"
#include "Sockets.h"

namespace bench {

namespace {

char input[64 * 1024];  // shared by all streams: there is one thread

}  // namespace

Stream::Stream(int fd, const Questions& questions, unsigned first, unsigned window)
    : questions_(questions),
      fd_(fd),
      window_(window),
      next_(first),
      awaited_(first),
      replyAt_(questions.replyBegin(first)),
      sentAt_(window) {}

void Stream::send() {
    const std::uint64_t now = nowNanoseconds();
    while (underWay_ < window_) {
        const unsigned count = std::min(window_ - underWay_, questions_.count() - next_);
        const std::size_t begin = questions_.requestBegin(next_);
        const std::size_t end = questions_.requestEnd[next_ + count - 1];
        if (!writeAll(fd_, questions_.requests.data() + begin, end - begin))
            fail("the server closed a connection");
        for (unsigned i = 0; i < count; ++i) {
            sentAt_[sentSlot_] = now;
            sentSlot_ = sentSlot_ + 1 == window_ ? 0 : sentSlot_ + 1;
        }
        underWay_ += count;
        next_ = next_ + count == questions_.count() ? 0 : next_ + count;
    }
}

bool Stream::receive(Schedule* schedule) {
    const ssize_t got = read(fd_, input, sizeof(input));
    if (got < 0 && errno == EINTR) return false;
    if (got < 0 && errno == EAGAIN) fail("no answer in 30 seconds");
    if (got <= 0) fail("the server closed a connection");
    const std::uint64_t now = nowNanoseconds();
    const std::size_t size = static_cast<std::size_t>(got);
    const std::size_t all = questions_.replies.size();
    for (std::size_t taken = 0; taken < size;) {
        const std::size_t part = std::min(size - taken, all - replyAt_);
        verify(input + taken, part);
        taken += part;
        replyAt_ += part;
        countAnswers(now, schedule);
        if (replyAt_ == all) replyAt_ = 0;
    }
    return true;
}

void Stream::verify(const char* bytes, std::size_t size) const {
    const char* const expected = questions_.replies.data() + replyAt_;
    if (memcmp(bytes, expected, size) == 0) return;
    const std::size_t good =
        replyAt_ + static_cast<std::size_t>(std::mismatch(bytes, bytes + size, expected).first - bytes);
    unsigned i = awaited_;
    while (questions_.replyEnd[i] <= good)
        ++i;
    fail("wrong answer to %s: byte %zu is %u", questions_.url(i).c_str(), good - questions_.replyBegin(i),
         static_cast<unsigned char>(bytes[good - replyAt_]));
}

void Stream::countAnswers(std::uint64_t now, Schedule* schedule) {
    while (underWay_ > 0 && questions_.replyEnd[awaited_] <= replyAt_) {
        schedule->answered(sentAt_[awaitedSlot_], now);
        awaitedSlot_ = awaitedSlot_ + 1 == window_ ? 0 : awaitedSlot_ + 1;
        --underWay_;
        if (++awaited_ == questions_.count()) {
            awaited_ = 0;
            return;  // the offsets in the replies start at 0 again
        }
    }
}

}  // namespace bench
