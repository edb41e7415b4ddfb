#include "listreader/Console.h"

#include <unistd.h>

#include "tools/Text.h"

namespace listreader {

namespace {

constexpr std::size_t shownBytes = 100;                 // of a string from outside
constexpr auto pause = std::chrono::milliseconds(200);  // between two updates

const char* programName = "katlist";
bool lineIsShown = false;  // a progress line is on the terminal

}  // namespace

void setProgramName(const char* name) {
    programName = name;
}

void tell(const std::string& text) {
    Progress::clear();
    std::fprintf(stderr, "%s: %s\n", programName, text.c_str());
}

std::string printable(std::string_view text) {
    return tools::printable(text, shownBytes);
}

void Notes::add(const std::string& text) {
    if (shows() && kept_ != nullptr) {
        kept_->push_back(text);
    } else if (shows()) {
        Progress::clear();
        std::fprintf(stream_, "%s\n", text.c_str());
    }
    ++count_;
}

void Notes::end(const std::string& what) const {
    if (count_ <= limit_) return;
    Progress::clear();
    std::fprintf(stream_, "... and %llu more %s (--show N shows more)\n",
                 static_cast<unsigned long long>(count_ - limit_), what.c_str());
}

Progress::Progress(bool quiet)
    : terminal_(!quiet && isatty(STDERR_FILENO) != 0), next_(std::chrono::steady_clock::now() + pause) {}

void Progress::begin(const char* what) {
    if (!terminal_) return;
    clear();
    std::fprintf(stderr, "%s ...", what);
    lineIsShown = true;
}

void Progress::clear() {
    if (lineIsShown) std::fputs("\r\033[K", stderr);
    lineIsShown = false;
}

void Progress::addShared(const char* what) {
    const std::lock_guard<std::mutex> guard(sharedMutex_);
    shared_ += everySteps;
    show(what, shared_);
}

void Progress::show(const char* what, std::uint64_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + pause;
    clear();
    std::fprintf(stderr, "%s: %llu", what, static_cast<unsigned long long>(done));
    lineIsShown = true;
}

}  // namespace listreader
