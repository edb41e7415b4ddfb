// A message at level debug, compared with the system calls of its three records; and a filtered message.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "Fail.h"
#include "KatdUtil/Utils.h"
#include "Micro.h"
#include "UrlServer/MessageOutput.h"
#include "util/Log.h"

namespace bench {

namespace {

constexpr const char* logModule = "UrlServer";
constexpr const char* asked = "http://www.harbour-gazette.example/";
constexpr unsigned long NEVER_ROTATED = 2097151;  // KiB

// Writes the bytes of the message with the calls that a log shared by several processes needs. For each
// record: lock, get the size, check that the open file and the lock files are still in place, write, get the
// size again. The size is queried as File::length does.
class BareLog {
public:
    explicit BareLog(const std::string& path) : path_(path), lockPath_(path + ".lock") {
        log_ = openFile(path_);
        lock_ = openFile(lockPath_);
    }
    ~BareLog() {
        close(log_);
        close(lock_);
        unlink(path_.c_str());
        unlink(lockPath_.c_str());
    }
    BareLog(const BareLog&) = delete;
    BareLog& operator=(const BareLog&) = delete;

    void record(const char* text, std::size_t size) const {
        struct stat status {};
        lockFile(F_WRLCK);
        askSize();
        stat(path_.c_str(), &status);
        fstat(log_, &status);
        if (access(lockPath_.c_str(), F_OK) != 0 || access(lockPath_.c_str(), F_OK) != 0)
            fail("the lock file is gone");
        if (write(log_, text, size) != static_cast<ssize_t>(size)) fail("the log cannot be written");
        askSize();
        lockFile(F_UNLCK);
    }

private:
    static int openFile(const std::string& path) {
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (fd < 0) fail("cannot write %s: %s", path.c_str(), strerror(errno));
        return fd;
    }
    void askSize() const {
        struct stat status {};
        if (access(path_.c_str(), R_OK) != 0 || stat(path_.c_str(), &status) != 0) fail("the log is gone");
        const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        lseek(fd, 0, SEEK_END);
        close(fd);
    }
    void lockFile(short type) const {
        struct flock whole {};
        whole.l_type = type;
        whole.l_whence = SEEK_SET;
        if (fcntl(lock_, F_SETLKW, &whole) != 0) fail("the log cannot be locked");
    }

    const std::string path_;
    const std::string lockPath_;
    int log_;
    int lock_;
};

void message(benchmark::State& state, const std::string& path) {
    using QOR_SPACE::Log;
    if (!Log::setDebugLogPath(path.c_str())) fail("cannot write %s", path.c_str());
    Log::setDebugLogEnabled(true);
    Log::setRotationSize(NEVER_ROTATED);
    KATD_SPACE::ops.output = KATD_SPACE::writeDebugLog;
    KATD_SPACE::ops.logLevel = 3;
    for (auto _ : state)
        DBG_MSG("Get url category for [%s]", asked);
    Log::setDebugLogPath("");
    unlink(path.c_str());
}

void bareCalls(benchmark::State& state, const std::string& path) {
    constexpr char FIRST[] = "2024-01-01 12:00:00\tdebug\t[DBG][UrlServer:123] \n";
    const std::string second =
        std::string("2024-01-01 12:00:00\tdebug\tGet url category for [") + asked + "]\n";
    constexpr char THIRD[] = "2024-01-01 12:00:00\tdebug\t\n";
    const BareLog log(path);
    for (auto _ : state) {
        log.record(FIRST, sizeof(FIRST) - 1);
        log.record(second.c_str(), second.size());
        log.record(THIRD, sizeof(THIRD) - 1);
    }
}

void filtered(benchmark::State& state) {
    KATD_SPACE::ops.output = KATD_SPACE::writeDebugLog;
    KATD_SPACE::ops.logLevel = 1;
    for (auto _ : state)
        DBG_MSG("Get url category for [%s]", asked);
}

// The minimum for a filtered message: its source position, a call, two comparisons.
std::atomic<std::int32_t> level{1};
std::atomic<void (*)(const char*)> output{KATD_SPACE::writeDebugLog};

__attribute__((noinline)) void compareTwice() {
    if (output.load(std::memory_order_relaxed) == nullptr || level.load(std::memory_order_relaxed) < 3)
        return;
    fail("never");
}

void twoComparisons(benchmark::State& state) {
    for (auto _ : state) {
        KATD_SPACE::LOG_FILE = logModule;
        KATD_SPACE::LOG_LINE = __LINE__;
        compareTwice();
    }
}

}  // namespace

void registerMessages(const std::string& folder) {
    const std::string name = folder + "/micro-bench-" + std::to_string(getpid());
    benchmark::RegisterBenchmark("message", message, name + ".log");
    benchmark::RegisterBenchmark("bare_calls", bareCalls, name + ".bare");
    benchmark::RegisterBenchmark("filtered", filtered);
    benchmark::RegisterBenchmark("two_comparisons", twoComparisons);
}

}  // namespace bench
