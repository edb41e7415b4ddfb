#include "support/Daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "support/Client.h"

extern char** environ;

namespace katd_test {

namespace {

// In the child: only what may be called between fork and exec in a program with threads.
[[noreturn]] void execute(const std::vector<char*>& arguments, const std::vector<char*>& environment,
                          int output) {
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execve(KATD_BINARY, arguments.data(), environment.data());
    _exit(126);
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> environmentTexts(Daemon::Environment variables) {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        variables.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    std::vector<std::string> texts;
    for (const auto& [name, value] : variables) {
        if (value != "-") texts.push_back(name + "=" + value);
    }
    return texts;
}

}  // namespace

Daemon::Daemon(const Home& home, const std::vector<std::string>& arguments, const Environment& environment)
    : home_(home), outputPath_(home / "output"), pid_(-1) {
    std::vector<std::string> argumentTexts = {KATD_BINARY};
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
    Environment variables = environment;
    variables.emplace("KATD_DIR", home.path());
    variables.emplace("ASAPSDK_RULES", home.rulesPath());
    variables.emplace("ASAPSDK_TRACE", home.tracePath());
    std::vector<std::string> variableTexts = environmentTexts(variables);
    const std::vector<char*> argv = pointers(argumentTexts);
    const std::vector<char*> envp = pointers(variableTexts);
    const int output = open(outputPath_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    pid_ = fork();
    if (pid_ == 0) execute(argv, envp, output);
    close(output);
}

Daemon::~Daemon() {
    if (!isRunning()) {
        EXPECT_GE(status_, 0) << "katd was ended by a signal; its output:\n" << output();
        return;
    }
    ::kill(pid_, SIGKILL);
    waitForExit();
}

bool Daemon::waitUntilServing() {
    bool serving = false;
    eventually([&] {
        serving = Client(home_.socketPath()).connected();
        return serving || !isRunning();
    });
    EXPECT_TRUE(serving) << output();
    return serving;
}

int Daemon::waitForExit(int seconds) {
    for (int i = 0; i < seconds * 100 && isRunning(); ++i)
        usleep(10000);
    return status_;
}

bool Daemon::isRunning() {
    if (status_ != STILL_RUNNING) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) return true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return false;
}

void Daemon::kill(int signal) {
    if (!isRunning()) return;
    ::kill(pid_, signal);
    // Meant, not a crash.
    if (signal == SIGKILL) {
        waitForExit();
        status_ = 0;
    }
}

std::string Daemon::output() const {
    return readFile(outputPath_);
}

}  // namespace katd_test
