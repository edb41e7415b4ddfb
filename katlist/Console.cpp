#include "Console.h"

#include <unistd.h>

namespace katlist {

namespace {

constexpr std::size_t shownBytes = 100;                 // of a text from outside
constexpr auto pause = std::chrono::milliseconds(200);  // between two lines of progress

bool lineStands = false;  // a line of progress is on the terminal

}  // namespace

void tell(const std::string& text) {
    Progress::clear();
    std::fprintf(stderr, "katlist: %s\n", text.c_str());
}

std::string printable(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (result.size() >= shownBytes) return result + "...";
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            result += c;
            continue;
        }
        char escape[5];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(byte));
        result += escape;
    }
    return result;
}

void Notes::add(const std::string& text) {
    if (shows()) {
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

Progress::Progress()
    : terminal_(isatty(STDERR_FILENO) != 0), next_(std::chrono::steady_clock::now() + pause) {}

void Progress::begin(const char* what) {
    if (!terminal_) return;
    clear();
    std::fprintf(stderr, "%s ...", what);
    lineStands = true;
}

void Progress::clear() {
    if (lineStands) std::fputs("\r\033[K", stderr);
    lineStands = false;
}

void Progress::show(const char* what, std::uint64_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + pause;
    clear();
    std::fprintf(stderr, "%s: %llu", what, static_cast<unsigned long long>(done));
    lineStands = true;
}

}  // namespace katlist
