// Shared by the fuzz targets. A target passes bytes to a reader of katd and to a simple model, and requires
// equal results. A requirement that does not hold is a finding and ends the process.
#ifndef KATD_FUZZ_FUZZ_H
#define KATD_FUZZ_FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "KatdUtil/Utils.h"

// Runs one input. Defined by each target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace katd_fuzz {

[[noreturn]] inline void fail(const char* file, int line, const char* condition) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

#define REQUIRE(condition) ((condition) ? void() : ::katd_fuzz::fail(__FILE__, __LINE__, #condition))

inline std::string bytesOf(const std::uint8_t* data, std::size_t size) {
    return std::string(data, data + size);
}

// The string up to its first zero byte, as C functions see it.
inline std::string upToZero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

// Removes the first line from the front of the text and returns it without its line feed.
inline std::string takeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    const std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

inline std::string afterBlanks(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first);
}

inline std::string trimmed(const std::string& text) {
    return afterBlanks(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
}

inline bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

inline std::size_t formatted = 0;  // characters of messages

// Formats every message and discards it.
inline void formatMessages() {
    KATD_SPACE::ops.logLevel = 3;
    KATD_SPACE::ops.output = [](const char* text) { formatted += std::strlen(text); };
}

// A file in memory, for readers that need a path. It ends with the process.
class InputFile {
public:
    InputFile() : fd_(memfd_create("input", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {
        REQUIRE(fd_ >= 0);
    }
    explicit InputFile(const std::string& text) : InputFile() { write(text); }
    ~InputFile() { close(fd_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const char* path() const { return path_.c_str(); }
    void write(const std::string& text) {
        REQUIRE(ftruncate(fd_, 0) == 0);
        REQUIRE(pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    }
    std::string read() const {
        std::string text(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
        REQUIRE(pread(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
        return text;
    }

private:
    int fd_;
    std::string path_;
};

}  // namespace katd_fuzz

#endif
