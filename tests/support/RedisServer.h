// A redis-server of its own for a test.
#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "support/TempDir.h"

namespace katd_test {

// Listens on a Unix socket in a temporary folder, on no port, and saves nothing: a new start is an empty one.
class RedisServer {
public:
    // The settings are further arguments of redis-server, such as {"--requirepass", "secret"}.
    explicit RedisServer(std::vector<std::string> settings = {}) : settings_(std::move(settings)) { start(); }
    ~RedisServer() { kill(); }
    RedisServer(const RedisServer&) = delete;
    RedisServer& operator=(const RedisServer&) = delete;

    // Returns when it answers. REQUIRES: it does not run.
    void start() {
        std::vector<std::string> words = {"redis-server", "--port",    "0",         "--unixsocket",
                                          socketPath(),   "--save",    "",          "--dir",
                                          dir_.path(),    "--logfile", dir_ / "log"};
        words.insert(words.end(), settings_.begin(), settings_.end());
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the test crashes
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
        for (int i = 0; i < 3000; ++i) {
            if (answers()) return;
            if (waitpid(pid_, nullptr, WNOHANG) != 0) {
                pid_ = -1;
                break;
            }
            usleep(10000);
        }
        ADD_FAILURE() << "redis-server does not answer; is it installed? Its log:\n"
                      << readFile(dir_ / "log");
    }
    // Ends it without a chance to do anything, even when it is stopped.
    void kill() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    void restart() {
        kill();
        start();
    }
    // Connections to it stay open, and it answers nothing until resume(). Returns when it has stopped.
    void stop() {
        ::kill(pid_, SIGSTOP);
        waitpid(pid_, nullptr, WUNTRACED);
    }
    void resume() { ::kill(pid_, SIGCONT); }

    std::string socketPath() const { return dir_ / "redis.sock"; }
    std::string address() const { return "redis://" + socketPath(); }

private:
    // Whether it replies at all, be it that it wants a password.
    bool answers() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        char reply = 0;
        const bool replied = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                             send(fd, "PING\r\n", 6, MSG_NOSIGNAL) == 6 && read(fd, &reply, 1) == 1;
        close(fd);
        return replied;
    }

    TempDir dir_;
    const std::vector<std::string> settings_;
    pid_t pid_ = -1;
};

}  // namespace katd_test
