#include "support/Daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include "support/Client.h"

namespace katd_test {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

Daemon::Daemon(const Home& home, std::vector<std::string> arguments, Environment environment)
    : home_(home), outputPath_(home / "output"), pid_(-1) {
    environment.emplace("KATD_DIR", home.path());
    environment.emplace("ASAPSDK_RULES", home.rulesPath());
    environment.emplace("ASAPSDK_TRACE", home.tracePath());
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        environment.emplace(text.substr(0, text.find('=')), text.substr(text.find('=') + 1));
    }
    std::vector<std::string> variables;
    for (const auto& [name, value] : environment) {
        if (value != "-") variables.push_back(name + "=" + value);
    }
    arguments.insert(arguments.begin(), KATD_BINARY);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, outputPath_.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    EXPECT_EQ(0, posix_spawn(&pid_, KATD_BINARY, &files, nullptr, pointers(arguments).data(),
                             pointers(variables).data()));
    posix_spawn_file_actions_destroy(&files);
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
    if (signal != SIGKILL) return;
    waitForExit();
    status_ = 0;  // not a crash
}

std::string Daemon::output() const {
    return readFile(outputPath_);
}

}  // namespace katd_test
