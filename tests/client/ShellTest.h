// Shell lines with the real katc, in front of a daemon that answers as the test wants.
#ifndef KATD_TESTS_CLIENT_SHELLTEST_H
#define KATD_TESTS_CLIENT_SHELLTEST_H

#include <gmock/gmock.h>

#include "support/FakeDaemon.h"

namespace katd_test {

class ShellTest : public testing::Test {
protected:
    // Runs a line in the folder; the exit status.
    int run(const std::string& line) {
        const std::string script = "cd " + dir.path() +
                                   "; unset KATD_DIR; PATH=$(dirname " KATC_BINARY "):$PATH; { " + line +
                                   "\n} </dev/null >out 2>err";
        const int status = std::system(script.c_str());
        output = readFile(dir / "out");
        errors = readFile(dir / "err");
        return WEXITSTATUS(status);
    }
    // The categories of the first host of the table that a message contains, else an unknown. Nothing for
    // "silent", nor for "refused!", after which the FakeDaemon closes the connection.
    static std::string answer(const std::string& message) {
        if (message.find("silent") != message.npos || message == "url0refused!" ||
            message == "ctl:save_cache")
            return "";
        const std::pair<const char*, const char*> known[] = {{"ads.example", "\x0c"},
                                                             {"multi.example", "\x05\x2c\xc8"},
                                                             {"news.example", "\x22"},
                                                             {"none.example", ""}};
        for (const auto& [host, categories] : known) {
            if (message.find(host) != message.npos) return reply(1, categories);
        }
        return reply(0, "");
    }

    TempDir dir;
    const std::string socket = dir / "socket";
    std::string output, errors;
};

}  // namespace katd_test

#endif
