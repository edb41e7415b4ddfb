#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <set>
#include <thread>

#include "Exception.h"
#include "io/File.h"
#include "support/TempDir.h"
#include "util/Log.h"

using namespace QOR_SPACE;
using namespace katd_test;

namespace {

class OpenRotationLog : public RotationFileLog {
public:
    explicit OpenRotationLog(const std::string& file) : RotationFileLog(nullptr) { setPath(file.c_str()); }
    bool setPath(const char* file) override {
        atSetPath();
        return RotationFileLog::setPath(file);
    }
    std::string nextFile(const std::string& file) override {
        atShift();
        return RotationFileLog::nextFile(file);
    }
    static bool isFree(Mutex& mutex) QOR_NO_THREAD_SAFETY_ANALYSIS {
        return mutex.trylock() == 0 && mutex.unlock() == 0;
    }
    std::string held() {
        return std::string(isFree(writeMutex) ? "" : "write") + (isFree(rotateMutex) ? "" : "rotate");
    }

    std::function<void()> atSetPath = [] {}, atShift = [] {};
};

// The log file's name is unique: its lock files are in /tmp.
class RotationTest : public testing::Test {
protected:
    ~RotationTest() override {
        Log::setRotationSize(0);
        Log::setExtensionLimits(4);
        for (const std::string& file : lockFiles)
            std::filesystem::remove(file);
    }
    std::string numbered(int number) const { return path + "." + std::to_string(number); }
    // The rotated files up to 9: "1:text 2:text ".
    std::string rotated() const {
        std::string found;
        for (int number = 0; number < 10; ++number) {
            if (File(numbered(number)).exists())
                found += std::to_string(number) + ":" + readFile(numbered(number)) + " ";
        }
        return found;
    }
    // Asks for a lock that conflicts even with a record lock of this process. Closing the descriptor releases
    // that.
    static bool isLocked(int fd) {
        struct flock lock {};
        lock.l_type = F_WRLCK;
        return fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    }

    TempDir folder;
    const std::string name = std::filesystem::path(folder.path()).filename().string() + ".log";
    const std::string path = folder / name;
    const std::vector<std::string> lockFiles = {"/tmp/" + name + ".lock", "/tmp/" + name + ".rlock"};
};

}  // namespace

TEST_F(RotationTest, StartsANewFileBeyondTheThreshold) {
    Log::setRotationSize(1);
    OpenRotationLog log(path);
    const std::string line(79, 'x');  // 100 bytes in the file
    for (int count = 0; count < 11; ++count)
        log.write(line);
    EXPECT_EQ("", rotated());
    log.write(line);
    EXPECT_EQ(1100, File(numbered(1)).length());
    writeFile(path, std::string(1024, 'x'));  // exactly the threshold: the record after the next rotates
    log.write(line);
    EXPECT_EQ(1124, File(path).length());
    log.write(line);
    EXPECT_EQ(1124, File(numbered(1)).length());
}

TEST_F(RotationTest, ShiftsTheUnbrokenRunWithinTheLimit) {
    const struct {
        int limit;
        std::string before, after;
    } cases[] = {{4, "", "1:live "},
                 {4, "13", "1:live 2:1 3:3 "},             // the gap is filled
                 {4, "12345", "1:live 2:1 3:2 4:3 5:5 "},  // 4 went, 5 is beyond
                 {4, "01", "1:live 2:0 3:1 "},             // left by a rotation that was cut short
                 {1, "1", "1:live "}};
    for (const auto& c : cases) {
        Log::setExtensionLimits(c.limit);
        for (const char number : c.before)
            writeFile(numbered(number - '0'), std::string(1, number));
        writeFile(path, "live");
        OpenRotationLog log(path);
        EXPECT_EQ(0, log.reqRotation());
        EXPECT_EQ(0, log.reqRotation());  // the file is empty now
        EXPECT_EQ(c.after, rotated());
        writeFile(folder / "other", "");
        log.clear();
        EXPECT_EQ("", rotated());
        EXPECT_TRUE(File(folder / "other").exists());
    }
    ASSERT_TRUE(File(numbered(1) + "/inside").mkdirs());  // cannot be removed
    writeFile(path, "live");
    OpenRotationLog log(path);
    EXPECT_EQ(-1, log.reqRotation());
    for (const int number : {2, 3, 5})
        writeFile(numbered(number), "x");
    Log::setRotationSize(1024);
    log.deleteBySize(2048);
    EXPECT_EQ("0:live 1: 2:x 5:x ", rotated());
}

TEST_F(RotationTest, SharesLockFilesButNoFileThatIsLinkedThere) {
    using std::filesystem::perms;
    const std::string victims[] = {folder / "victim", folder / "other"};
    for (const std::string& victim : victims)
        writeFile(victim, "secret");
    const int held = open(victims[1].c_str(), O_RDWR);
    for (const std::string& victim : victims)
        std::filesystem::permissions(victim, perms::owner_read);
    std::filesystem::create_symlink(victims[0], lockFiles[0]);
    std::filesystem::create_hard_link(victims[1], lockFiles[1]);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    ASSERT_EQ(0, fcntl(held, F_SETLK, &whole));
    const mode_t mask = umask(077);
    OpenRotationLog log(path);
    EXPECT_TRUE(isLocked(held)) << "the log has opened and closed a file that is linked in /tmp";
    close(held);
    for (const std::string& victim : victims)
        EXPECT_EQ(perms::owner_read, std::filesystem::status(victim).permissions());
    for (const char* text : {"creates them", "and again after their removal"}) {
        for (const std::string& file : lockFiles)
            unlink(file.c_str());
        log.write(text);
        for (const std::string& file : lockFiles)
            EXPECT_EQ(0666, static_cast<int>(std::filesystem::status(file).permissions()));
    }
    umask(mask);
}

TEST_F(RotationTest, KeepsEveryRecordOfSeveralProcesses) {
    constexpr int processes = 3, records = 300;  // of each process
    Log::setRotationSize(1);
    Log::setExtensionLimits(1000);
    for (const bool shareLockFiles : {true, false}) {
        const auto write = [&](int process) {
            for (const std::string& file : lockFiles)
                if (!shareLockFiles) unlink(file.c_str());
            OpenRotationLog log(path);
            for (int i = 0; i < records; ++i)
                log.write(std::string(i % 90, '=') + '\t' + std::to_string(process * records + i));
        };
        for (int process = 1; process < processes; ++process) {
            if (fork() == 0) {
                write(process);
                _exit(0);
            }
        }
        write(0);
        for (int status = -1; wait(&status) > 0;)
            EXPECT_EQ(0, status);
        std::multiset<std::string> found;
        for (int file = -1; file <= 1000; ++file) {
            std::ifstream in(file < 0 ? path : numbered(file));
            for (std::string line; std::getline(in, line);)
                found.insert(line.substr(line.rfind('\t') + 1));
        }
        EXPECT_TRUE(File(numbered(10)).exists());  // it did rotate
        EXPECT_EQ(1u * processes * records, found.size()) << shareLockFiles;
        EXPECT_EQ(found.size(), std::set<std::string>(found.begin(), found.end()).size());
        OpenRotationLog(path).clear();
    }
}

TEST_F(RotationTest, HoldsOnePairAtATimeUntilItsLastThreadIsOut) {
    OpenRotationLog log(path);
    const int writeLock = open(lockFiles[0].c_str(), O_RDWR), rotateLock = open(lockFiles[1].c_str(), O_RDWR);
    std::thread other;
    log.atSetPath = [&] {
        EXPECT_TRUE(log.held() == "write" && isLocked(writeLock));
        if (other.joinable()) return;
        other = std::thread([&] { log.write("text"); });
        usleep(20000);  // it probably waits for this thread by now
    };
    log.write("text");
    other.join();
    EXPECT_FALSE(isLocked(writeLock));
    log.atSetPath = [] {};
    log.atShift = [&] {
        EXPECT_TRUE(log.held() == "rotate" && isLocked(rotateLock) && !isLocked(writeLock));
    };
    EXPECT_EQ(0, log.reqRotation());
    close(writeLock);
    close(rotateLock);
}

// This process holds one lock and waits for the other, a second process does so the other way round.
TEST_F(RotationTest, WaitsOnWhenTheKernelSeesADeadlock) {
    OpenRotationLog log(path);
    FileLock rotateLock(lockFiles[1], true);
    ASSERT_EQ(0, rotateLock.lock());
    const pid_t child = fork();
    if (child == 0) {
        FileLock first(lockFiles[0], true), second(lockFiles[1], true);
        first.lock();
        writeFile(folder / "ready", "");
        while (second.lock() != 0)
            usleep(1000);
        FileOutputStream(path.c_str(), 1).write("child\n");
        _exit(0);
    }
    while (!File(folder / "ready").exists())
        usleep(1000);
    usleep(20000);  // the child probably waits by now
    std::thread releasing([&] {
        usleep(50000);
        rotateLock.unlock();
    });
    log.write("parent");
    releasing.join();
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    EXPECT_EQ("child\n", readFile(path).substr(0, 6));
}

TEST_F(RotationTest, ReleasesItsLocksWhateverFails) {
    Log::setRotationSize(1);
    for (const int failure : {0, 1, 2, 3}) {
        const bool memory = failure % 2 == 1;
        OpenRotationLog log(path);
        (failure / 2 == 1 ? log.atShift : log.atSetPath) = [memory] {
            if (memory) throw std::bad_alloc();
            throw IOException("broken");
        };
        writeFile(path, std::string(2000, 'x'));
        testing::internal::CaptureStderr();
        try {
            log.write("text");
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(memory);
        }
        EXPECT_EQ(memory, testing::internal::GetCapturedStderr().find("broken\n") != 0);
        EXPECT_EQ("", log.held()) << failure;
        std::filesystem::remove(numbered(0));
    }
}

TEST_F(RotationTest, RecordAfterAFailedWriteStartsItsOwnLine) {
    OpenRotationLog log(path);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    for (const unsigned room : {0U, 10U}) {  // nothing is written, then a date
        writeFile(path, std::string(500, 'x') + "\n");
        const rlimit small{501 + room, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        testing::internal::CaptureStderr();
        log.write("lost");
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_EQ("File too large\n", testing::internal::GetCapturedStderr());
        log.write("whole");
        EXPECT_EQ("\twhole\n", readFile(path).substr(501 + (room == 0 ? 0 : room + 1) + 19));
    }
    std::signal(SIGXFSZ, oldHandler);
}
