// Terminal output of the list programs: messages, counted notes and progress on standard error. One thread,
// where nothing else is said.
#ifndef LISTREADER_CONSOLE_H
#define LISTREADER_CONSOLE_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace listreader {

// The name that tell() puts in front: "katlist" until this is called. `name` must outlive the program.
void setProgramName(const char* name);

// Prints "NAME: TEXT" on standard error; removes a progress line first.
void tell(const std::string& text);

// Text from a file or an argument, made safe for a terminal: control characters as \xNN, cut after 100 bytes.
std::string printable(std::string_view text);

// Notes of one kind. The first ones are printed, all are counted.
class Notes {
public:
    // Prints up to `limit` notes to `stream`, which it does not own.
    Notes(std::FILE* stream, std::uint64_t limit) : stream_(stream), limit_(limit) {}
    // Appends up to `limit` notes to `*kept` instead, which must outlive the object.
    Notes(std::vector<std::string>* kept, std::uint64_t limit) : kept_(kept), limit_(limit) {}

    // True if add(text) would print: otherwise the caller need not compose the text.
    bool shows() const { return count_ < limit_; }
    void add(const std::string& text);
    // Counts a note without printing it.
    void add() { ++count_; }
    std::uint64_t count() const { return count_; }
    // Prints how many notes were not shown, if any: "... and 12 more WHAT".
    void end(const std::string& what) const;

private:
    std::FILE* const stream_ = nullptr;
    std::vector<std::string>* const kept_ = nullptr;
    const std::uint64_t limit_;
    std::uint64_t count_ = 0;
};

// A progress line, if standard error is a terminal; otherwise nothing.
class Progress {
public:
    // With `quiet`, never anything.
    explicit Progress(bool quiet);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Cheap enough to call for each line: prints "what: done" a few times a second.
    void step(const char* what, std::uint64_t done) {
        if (terminal_ && done % everySteps == 0) show(what, done);
    }
    // The same for work that several threads share: each counts `done` by itself, from 1, and they may call
    // it at the same time.
    void sharedStep(const char* what, std::uint64_t done) {
        if (terminal_ && done % everySteps == 0) addShared(what);
    }
    // Announces work that has no steps.
    void begin(const char* what);
    // Removes the line. tell() and Notes call it.
    static void clear();

private:
    static constexpr std::uint64_t everySteps = 1U << 14U;  // between two looks at the clock

    void show(const char* what, std::uint64_t done);
    void addShared(const char* what);

    bool terminal_;
    std::chrono::steady_clock::time_point next_;  // when to print next
    std::mutex sharedMutex_;                      // of addShared()
    std::uint64_t shared_ = 0;                    // steps
};

}  // namespace listreader

#endif
