// The real katd as a child process of a test.
#pragma once

#include <sys/types.h>

#include "support/Home.h"

namespace katd_test {

class Daemon {
public:
    using Environment = std::map<std::string, std::string>;

    // Starts katd on the home. The environment overrides KATD_DIR, the variables of the stand-in engine, and
    // what the test itself has; a variable with the value "-" is unset.
    explicit Daemon(const Home& home, std::vector<std::string> arguments = {}, Environment environment = {});
    // Kills it if it is running; a crash before that fails the test.
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    pid_t pid() const { return pid_; }
    // Whether it accepts connections. False as soon as it has ended, or after half a minute.
    bool waitUntilServing();
    // Its exit status; the negative signal number if a signal ended it; STILL_RUNNING after that time.
    static constexpr int STILL_RUNNING = -1000;
    int waitForExit(int seconds = 60);
    bool isRunning();
    void kill(int signal);
    // What it has written to standard output and standard error.
    std::string output() const;

private:
    const Home& home_;
    const std::string outputPath_;
    pid_t pid_;
    int status_ = STILL_RUNNING;
};

// Waits until condition() holds; false if it does not within half a minute.
template <class Condition>
bool eventually(Condition condition) {
    for (int i = 0; i < 3000; ++i) {
        if (condition()) return true;
        usleep(10000);
    }
    return condition();
}

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace katd_test
