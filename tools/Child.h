// Running another program for its output.
#ifndef KATD_TOOLS_CHILD_H
#define KATD_TOOLS_CHILD_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tools {

// Bounds for a program that must not hold up its caller.
struct ChildLimits {
    std::chrono::milliseconds time;
    std::size_t bytes;  // of output
};

// Runs words[0], found along PATH, with the words as its arguments, no input and no blocked signals, until it
// ends. Appends what it prints on standard output to *output. With limits, *output also gets standard error,
// and a program that exceeds one is killed with all that it started. The exit status, -1 if a signal ended
// it; nothing, with a sentence in *problem, without its full stop, if the program cannot be run or was
// killed. Thread-safe.
std::optional<int> runChild(const std::vector<std::string>& words, const std::optional<ChildLimits>& limits,
                            std::string* output, std::string* problem);

}  // namespace tools

#endif
