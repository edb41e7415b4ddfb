#ifndef KATD_BENCH_QUESTIONS_H
#define KATD_BENCH_QUESTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// Questions and expected answers in wire format, contiguous, so that any number of them takes one write and
// one comparison.
struct Questions {
    // A line of the file is the expected answer, a tab and the URL. The answer is category numbers with
    // commas between them, "-" for no answer or "-!" for the final Unknown. Ends the process if the file is
    // not usable.
    explicit Questions(const std::string& path);

    unsigned count() const { return static_cast<unsigned>(requestEnd.size()); }
    std::uint32_t requestBegin(unsigned i) const { return i == 0 ? 0 : requestEnd[i - 1]; }
    std::uint32_t replyBegin(unsigned i) const { return i == 0 ? 0 : replyEnd[i - 1]; }
    std::string url(unsigned i) const;
    // The first expected category, or -1 for none.
    int category(unsigned i) const;

    std::vector<char> requests;
    std::vector<std::uint32_t> requestEnd;  // offsets in `requests`, one for each question
    std::vector<char> replies;
    std::vector<std::uint32_t> replyEnd;
};

}  // namespace bench

#endif
