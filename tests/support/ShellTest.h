// Shell lines with one of the programs, run in a folder of their own.
#pragma once

#include "support/TempDir.h"

namespace katd_test {

class ShellTest : public testing::Test {
protected:
    // The lines find the program by its name; `preamble` is run before each.
    explicit ShellTest(const std::string& program, const std::string& preamble = "")
        : start_("cd " + dir.path() + "; unset KATD_DIR; PATH=$(dirname " + program + "):$PATH; " +
                 preamble) {}
    // Runs a line; the exit status.
    int run(const std::string& line) {
        const int status = std::system((start_ + "{ " + line + "\n} </dev/null >out 2>err").c_str());
        output = readFile(dir / "out");
        errors = readFile(dir / "err");
        return WEXITSTATUS(status);
    }
    // Writes a file of the folder, and makes the folders above it.
    void write(const std::string& name, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(dir / name).parent_path());
        writeFile(dir / name, text);
    }

    TempDir dir;
    std::string output, errors;

private:
    const std::string start_;
};

}  // namespace katd_test
