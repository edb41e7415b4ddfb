// The faults of one katd: which of its calls fail, and how many did.
#ifndef KATD_TESTS_FAULTS_H
#define KATD_TESTS_FAULTS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "faults/preload/FaultReport.h"
#include "support/Daemon.h"

namespace katd_test {

// Long forms of the tests, for a run of the test program itself: minutes, some of them many.
inline bool isLongRun() {
    return getenv("KATD_TESTS_LONG") != nullptr;
}

class Faults {
public:
    // call and error as FAULT_CALL and FAULT_ERRNO; an error of 0 is "short".
    Faults(const Home& home, const std::string& call, int error)
        : call_(call), error_(error), path_(home / "faults"), report_(nullptr) {
        const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(0, ftruncate(fd, sizeof(FaultReport)));
        void* shared = mmap(nullptr, sizeof(FaultReport), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (shared == MAP_FAILED) ADD_FAILURE() << "cannot map " << path_;
        report_ = static_cast<FaultReport*>(shared);
    }
    ~Faults() { munmap(report_, sizeof(FaultReport)); }
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    // The calls with these numbers fail from now on.
    void arm(std::uint32_t first, std::uint32_t last) {
        report_->last = last;
        report_->first = first;
    }
    void armAll() { arm(1, UINT32_MAX); }
    void disarm() { arm(0, 0); }
    std::uint32_t calls() const { return report_->calls; }
    std::uint32_t failed() const { return report_->failed; }

    // For the katd that is to have them. The engine keeps no trace: its writes would be counted.
    Daemon::Environment environment(Daemon::Environment variables = {}) const {
        std::string& libraries = variables["LD_PRELOAD"];
        libraries = libraries.empty() ? FAULTS : FAULTS ":" + libraries;
        variables["FAULT_CALL"] = call_;
        variables["FAULT_ERRNO"] = error_ == 0 ? "short" : std::to_string(error_);
        variables["FAULT_REPORT"] = path_;
        variables["ASAPSDK_TRACE"] = "-";
        return variables;
    }

private:
    const std::string call_;
    const int error_;
    const std::string path_;
    FaultReport* report_;
};

}  // namespace katd_test

#endif
