// Makes calls of one katd fail, and counts them.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "faults/preload/FaultReport.h"
#include "support/Daemon.h"

namespace katd_test {

// Whether tests take their long form, of minutes: for a run of the test program itself.
inline bool isLongRun() {
    return getenv("KATD_TESTS_LONG") != nullptr;
}

class Faults {
public:
    // call and error as FAULT_CALL and FAULT_ERRNO (preload/Faults.cpp); an error of 0 is "short".
    Faults(const Home& home, const std::string& call, int error)
        : call_(call), error_(error), path_(home / "faults") {
        writeFile(path_, std::string(sizeof(FaultReport), '\0'));
        const int fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        void* shared = mmap(nullptr, sizeof(FaultReport), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (shared == MAP_FAILED) ADD_FAILURE() << "cannot map " << path_;
        report_ = static_cast<FaultReport*>(shared);
    }
    ~Faults() { munmap(report_, sizeof(FaultReport)); }
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    // The calls with these numbers fail from now on; the first one is 1.
    void arm(std::uint32_t first, std::uint32_t last) {
        report_->last = last;
        report_->first = first;
    }
    void armAll() { arm(1, UINT32_MAX); }
    void disarm() { arm(0, 0); }
    std::uint32_t calls() const { return report_->calls; }
    std::uint32_t failed() const { return report_->failed; }

    // For the katd whose calls are to fail. The engine writes no trace: its writes would be counted.
    Daemon::Environment environment(const Daemon::Environment& more = {}) const {
        Daemon::Environment variables = {{"FAULT_CALL", call_},
                                         {"FAULT_ERRNO", error_ == 0 ? "short" : std::to_string(error_)},
                                         {"FAULT_REPORT", path_},
                                         {"ASAPSDK_TRACE", "-"},
                                         {"LD_PRELOAD", FAULTS}};
        for (const auto& [name, value] : more)
            variables[name] = name == "LD_PRELOAD" ? FAULTS ":" + value : value;
        return variables;
    }

private:
    const std::string call_;
    const int error_;
    const std::string path_;
    FaultReport* report_ = nullptr;
};

}  // namespace katd_test
