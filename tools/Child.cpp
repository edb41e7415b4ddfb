#include "tools/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

int spawn(const std::vector<std::string>& words, int output, bool isLimited, pid_t* child) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    if (isLimited) posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawnattr_setsigmask(&attributes, &none);
    // A group of its own, to be killed as a whole.
    posix_spawnattr_setflags(
        &attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | (isLimited ? POSIX_SPAWN_SETPGROUP : 0)));
    const int error = posix_spawnp(child, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

// Reads until the end of the output; false when a limit is exceeded first.
bool readAll(int descriptor, const std::optional<ChildLimits>& limits, std::string* output) {
    const Clock::time_point deadline = limits ? Clock::now() + limits->time : Clock::time_point::max();
    const std::size_t before = output->size();
    for (char buffer[4096];;) {
        pollfd wanted{descriptor, POLLIN, 0};
        int wait = -1;
        if (limits) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            wait = static_cast<int>(std::max<std::int64_t>(left, 0));
        }
        const int ready = poll(&wanted, 1, wait);
        if (ready == 0) return false;
        const ssize_t size = ready < 0 ? -1 : read(descriptor, buffer, sizeof buffer);
        if (size == 0) return true;
        if (size < 0 && errno != EINTR) return false;
        if (size > 0) output->append(buffer, static_cast<std::size_t>(size));
        if (limits && output->size() - before > limits->bytes) return false;
    }
}

}  // namespace

std::optional<int> runChild(const std::vector<std::string>& words, const std::optional<ChildLimits>& limits,
                            std::string* output, std::string* problem) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        *problem = std::string("cannot make a pipe: ") + std::strerror(errno);
        return std::nullopt;
    }
    pid_t child = 0;
    const int error = spawn(words, ends[1], limits.has_value(), &child);
    close(ends[1]);
    bool isRead = false;
    int status = 0;
    if (error == 0) {
        isRead = readAll(ends[0], limits, output);
        if (!isRead) kill(limits ? -child : child, SIGKILL);
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
    }
    close(ends[0]);
    if (error != 0)
        *problem = "cannot run " + words[0] + ": " + std::strerror(error);
    else if (!isRead)
        *problem = words[0] + " did not end in time, or printed too much";
    if (!isRead) return std::nullopt;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tools
