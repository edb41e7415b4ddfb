// What katlist says while it works: notes on standard error, and how far it is.
#ifndef KATLIST_CONSOLE_H
#define KATLIST_CONSOLE_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace katlist {

// A line on standard error, behind the program's name and a progress line that may stand there.
void tell(const std::string& text);

// Text from a file or an argument as it may go to a terminal: control bytes as \xNN, cut where it is long.
std::string printable(const std::string& text);

// Notes of one kind. The first ones are shown, all are counted.
class Notes {
public:
    // Shows up to `limit` notes on `stream`, which is not owned.
    Notes(std::FILE* stream, std::uint64_t limit) : stream_(stream), limit_(limit) {}

    // True when the next note will be shown: others need not be put together.
    bool shows() const { return count_ < limit_; }
    void add(const std::string& text);
    // Counts one that is not shown.
    void add() { ++count_; }
    std::uint64_t count() const { return count_; }
    // Says how many were not shown, if any: "... and 12 more ". `what` names them.
    void end(const std::string& what) const;

private:
    std::FILE* const stream_;
    const std::uint64_t limit_;
    std::uint64_t count_ = 0;
};

// One line on a terminal that tells how far long work is; nothing where standard error is none.
class Progress {
public:
    Progress();
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // To be called often: shows "what: done" a few times a second.
    void step(const char* what, std::uint64_t done) {
        if (terminal_ && done % everySteps == 0) show(what, done);
    }
    // Work that has no steps begins.
    void begin(const char* what);
    // Removes the line. Notes do so by themselves.
    static void clear();

private:
    static constexpr std::uint64_t everySteps = 1U << 14U;  // between two looks at the clock

    void show(const char* what, std::uint64_t done);

    bool terminal_;
    std::chrono::steady_clock::time_point next_;  // when to show the next one
};

}  // namespace katlist

#endif
