// Runs the real katc.
#ifndef KATD_TESTS_CLIENT_KATCPROCESS_H
#define KATD_TESTS_CLIENT_KATCPROCESS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "support/TempDir.h"

extern char** environ;

namespace katd_test {

// One katc, with pipes on its standard input and output. Ended when the object goes.
class KatcProcess {
public:
    // `home`: its KATD_DIR, not set when empty. The files stand in place of the pipes.
    explicit KatcProcess(std::vector<std::string> arguments, const std::string& home = "",
                         const std::string& outputFile = "", const std::string& inputFile = "") {
        int in[2];
        int out[2];
        EXPECT_EQ(0, pipe2(in, O_CLOEXEC));
        EXPECT_EQ(0, pipe2(out, O_CLOEXEC));
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (inputFile.empty()) {
            posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        } else {
            posix_spawn_file_actions_addopen(&actions, 0, inputFile.c_str(), O_RDONLY, 0);
        }
        if (outputFile.empty()) {
            posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        } else {
            posix_spawn_file_actions_addopen(&actions, 1, outputFile.c_str(), O_WRONLY, 0);
        }
        posix_spawn_file_actions_addopen(&actions, 2, (dir_ / "stderr").c_str(), O_WRONLY | O_CREAT, 0600);

        std::vector<std::string> variables;
        for (char** variable = environ; *variable != nullptr; ++variable) {
            if (std::strncmp(*variable, "KATD_DIR=", 9) != 0) variables.emplace_back(*variable);
        }
        if (!home.empty()) variables.push_back("KATD_DIR=" + home);
        arguments.insert(arguments.begin(), "katc");
        EXPECT_EQ(0, posix_spawn(&pid_, KATC_BINARY, &actions, nullptr, pointers(&arguments).data(),
                                 pointers(&variables).data()));
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        in_ = in[1];
        out_ = out[0];
    }
    ~KatcProcess() {
        endInput();
        close(out_);
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    KatcProcess(const KatcProcess&) = delete;
    KatcProcess& operator=(const KatcProcess&) = delete;

    void say(const std::string& text) {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(in_, text.data(), text.size()));
    }
    void endInput() {
        if (in_ >= 0) close(in_);
        in_ = -1;
    }

    // The next line of its output, without its end; "" at the end and after 20 seconds without one.
    std::string readLine() {
        std::string line;
        char c = 0;
        pollfd events{out_, POLLIN, 0};
        while (poll(&events, 1, 20000) == 1 && read(out_, &c, 1) == 1 && c != '\n')
            line += c;
        return line;
    }

    // Ends its input and waits for its end; the exit status, or -1 when it ended otherwise.
    int finish() {
        endInput();
        for (std::string line = readLine(); !line.empty(); line = readLine())
            output += line + "\n";
        int status = 0;
        EXPECT_EQ(pid_, waitpid(pid_, &status, 0));
        pid_ = -1;
        errors = readFile(dir_ / "stderr");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string output;  // after finish(): what readLine() had not taken, up to an empty line
    std::string errors;  // after finish(): standard error

private:
    static std::vector<char*> pointers(std::vector<std::string>* texts) {
        std::vector<char*> result;
        for (std::string& text : *texts)
            result.push_back(&text[0]);
        result.push_back(nullptr);
        return result;
    }

    TempDir dir_;
    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
};

}  // namespace katd_test

#endif
