#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>
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
    bool isFree() { return isFree(writeMutex) && isFree(rotateMutex); }

    std::function<void()> atSetPath = [] {}, atShift = [] {};
};

// The log file's name is unique, since its lock files lie in /tmp for all.
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
    EXPECT_EQ(1100, File(numbered(2)).length());
}

TEST_F(RotationTest, ShiftsTheUnbrokenRunWithinTheLimit) {
    const struct {
        int limit;
        std::string before, after;
    } cases[] = {{4, "", "1:live "},
                 {4, "13", "1:live 2:1 3:3 "},             // the gap is filled
                 {4, "12345", "1:live 2:1 3:2 4:3 5:5 "},  // 4 went, 5 is beyond
                 {1, "1", "1:live "},
                 {4, "01", "1:live 2:0 3:1 "}};  // left by a rotation that was cut short
    for (const auto& c : cases) {
        Log::setExtensionLimits(c.limit);
        for (const char number : c.before)
            writeFile(numbered(number - '0'), std::string(1, number));
        writeFile(path, "live");
        OpenRotationLog log(path);
        EXPECT_EQ(0, log.reqRotation());
        EXPECT_EQ(0, log.reqRotation());  // the file is empty now
        EXPECT_EQ(c.after, rotated());
        log.clear();
        EXPECT_EQ("", rotated());
    }
}

TEST_F(RotationTest, LosesNothingWhenTheLastFileCannotBeRemoved) {
    Log::setExtensionLimits(2);
    ASSERT_TRUE(File(numbered(2) + "/inside").mkdirs());
    OpenRotationLog log(path);
    for (const char* text : {"first", "second", "third"}) {
        log.write(text);
        log.reqRotation();
    }
    EXPECT_EQ(-1, log.reqRotation());
    EXPECT_NE(std::string::npos, readFile(numbered(1)).find("first"));
    EXPECT_NE(std::string::npos, readFile(numbered(0)).find("second"));
    EXPECT_NE(std::string::npos, readFile(path).find("third"));
}

TEST_F(RotationTest, DeletesBySizeAndClears) {
    OpenRotationLog log(path);
    for (const int number : {1, 2, 3, 4, 5, 7})
        writeFile(numbered(number), "x");
    writeFile(folder / "other", "x");
    Log::setRotationSize(1024);
    log.deleteBySize(3072);
    EXPECT_EQ("1:x 2:x 3:x 7:x ", rotated());
    log.clear();
    std::vector<std::string> left;
    File(folder.path()).list(left);
    EXPECT_EQ(std::vector<std::string>{"other"}, left);
}

TEST_F(RotationTest, SharesLockFilesButFollowsNoLink) {
    const std::string victim = folder / "victim", absent = folder / "absent";
    writeFile(victim, "secret");
    const auto modeOf = [](const std::string& file) { return std::filesystem::status(file).permissions(); };
    const auto before = modeOf(victim);
    std::filesystem::create_symlink(victim, lockFiles[0]);
    std::filesystem::create_symlink(absent, lockFiles[1]);
    const mode_t mask = umask(077);
    OpenRotationLog log(path);
    EXPECT_EQ(before, modeOf(victim));
    EXPECT_FALSE(File(absent).exists());
    for (const char* text : {"creates them", "and once more when they were removed"}) {
        for (const std::string& file : lockFiles)
            unlink(file.c_str());
        log.write(text);
        for (const std::string& file : lockFiles)
            EXPECT_EQ(0666, static_cast<int>(modeOf(file)));
    }
    umask(mask);
}

TEST_F(RotationTest, KeepsEveryRecordOfThreadsAndProcesses) {
    constexpr int processes = 3, records = 150;  // of each of a process's two threads
    Log::setRotationSize(1);
    Log::setExtensionLimits(1000);
    const auto write = [this](int process) {
        OpenRotationLog log(path);
        const auto writeMany = [&log](int first) {
            for (int number = first; number < first + records; ++number)
                log.write(std::string(static_cast<std::size_t>(number % 90), '=') + '\t' +
                          std::to_string(number));
        };
        std::thread other(writeMany, 2 * process * records);
        writeMany((2 * process + 1) * records);
        other.join();
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

    std::map<std::string, int> found;
    for (int file = -1; file <= 1000; ++file) {
        std::ifstream in(file < 0 ? path : numbered(file));
        for (std::string line; std::getline(in, line);)
            ++found[line.substr(line.rfind('\t') + 1)];
    }
    EXPECT_TRUE(File(numbered(10)).exists());  // it did rotate
    EXPECT_EQ(2u * processes * records, found.size());
    for (const auto& [record, times] : found)
        EXPECT_EQ(1, times) << record;
}

TEST_F(RotationTest, ReleasesItsLocksWhateverFails) {
    Log::setRotationSize(1);
    for (const int failure : {0, 1, 2, 3}) {
        const bool inShift = failure / 2 == 1, memory = failure % 2 == 1;
        OpenRotationLog log(path);
        (inShift ? log.atShift : log.atSetPath) = [memory] {
            if (memory) throw std::bad_alloc();
            throw IOException("broken");
        };
        writeFile(path, std::string(2000, 'x'));
        testing::internal::CaptureStderr();
        if (memory) {
            EXPECT_THROW(log.write("text"), std::bad_alloc);
        } else {
            EXPECT_NO_THROW(log.write("text"));
        }
        EXPECT_EQ(memory, testing::internal::GetCapturedStderr().find("broken\n") != 0);
        EXPECT_TRUE(log.isFree()) << failure;
        std::filesystem::remove(numbered(0));
    }
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/dev/full", path);
    OpenRotationLog full(path);
    testing::internal::CaptureStderr();
    full.write("text");
    EXPECT_EQ("No space left on device\n", testing::internal::GetCapturedStderr());
    EXPECT_TRUE(full.isFree());
}
