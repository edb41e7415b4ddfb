// A redis-server of its own for a test.
#pragma once

#include <hiredis/hiredis.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
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
            if (!run({"PING"}).empty()) return;
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
    // Connections to it stay open, and it answers nothing until resume(). Returns when it has stopped.
    void stop() {
        ::kill(pid_, SIGSTOP);
        waitpid(pid_, nullptr, WUNTRACED);
    }
    void resume() { ::kill(pid_, SIGCONT); }

    // Sends it a command; the text of the reply, be it that of an error. Empty if there is none.
    std::string run(const std::vector<std::string>& words) const {
        std::vector<const char*> pointers;
        std::vector<std::size_t> sizes;
        for (const std::string& word : words) {
            pointers.push_back(word.data());
            sizes.push_back(word.size());
        }
        const std::unique_ptr<redisContext, void (*)(redisContext*)> context(
            redisConnectUnix(socketPath().c_str()), redisFree);
        const std::unique_ptr<redisReply, void (*)(void*)> reply(
            static_cast<redisReply*>(redisCommandArgv(context.get(), static_cast<int>(words.size()),
                                                      pointers.data(), sizes.data())),
            freeReplyObject);
        return reply && reply->str != nullptr ? std::string(reply->str, reply->len) : "";
    }

    std::string socketPath() const { return dir_ / "redis.sock"; }
    std::string address() const { return "redis://" + socketPath(); }

private:
    TempDir dir_;
    const std::vector<std::string> settings_;
    pid_t pid_ = -1;
};

}  // namespace katd_test
