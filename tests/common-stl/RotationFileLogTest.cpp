#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "Exception.h"
#include "io/File.h"
#include "support/TempDir.h"
#include "util/Log.h"

using namespace QOR_SPACE;
using namespace katd_test;

typedef std::vector<int> Numbers;

namespace {

// A RotationFileLog whose inside can be looked at.
class OpenRotationLog : public RotationFileLog {
public:
    explicit OpenRotationLog(OutputStream* outputStream) : RotationFileLog(outputStream) {}
    explicit OpenRotationLog(const std::string& file) : RotationFileLog(nullptr) { setPath(file.c_str()); }
    using RotationFileLog::stream;

    // True when nobody is inside a pair.
    bool isFree() QOR_NO_THREAD_SAFETY_ANALYSIS {
        const bool writeFree = writeMutex.trylock() == 0;
        if (writeFree) writeMutex.unlock();
        const bool rotateFree = rotateMutex.trylock() == 0;
        if (rotateFree) rotateMutex.unlock();
        return writeFree && rotateFree;
    }
};

// The log file's name is unique, since its lock files lie in /tmp for all. Puts the switches back at the end.
class RotationTest : public testing::Test {
protected:
    RotationTest()
        : name(folder.path().substr(folder.path().rfind('/') + 1) + ".log"),
          path(folder / name),
          writeLockFile("/tmp/" + name + ".lock"),
          rotateLockFile("/tmp/" + name + ".rlock") {}
    ~RotationTest() override {
        Log::setRotationSize(0);
        Log::setExtensionLimits(4);
        unlink(writeLockFile.c_str());
        unlink(rotateLockFile.c_str());
    }

    std::string numbered(int number) const { return path + "." + std::to_string(number); }
    bool exists(const std::string& file) const { return access(file.c_str(), F_OK) == 0; }
    // The numbers of the rotated files that exist, up to 9.
    Numbers numbers() const {
        Numbers found;
        for (int number = 0; number < 10; ++number) {
            if (exists(numbered(number))) found.push_back(number);
        }
        return found;
    }

    TempDir folder;
    const std::string name;
    const std::string path;
    const std::string writeLockFile;
    const std::string rotateLockFile;
};

}  // namespace

TEST_F(RotationTest, StartsANewFileBeyondTheThreshold) {
    Log::setRotationSize(1);
    OpenRotationLog log(path);
    const std::string line(79, 'x');  // 100 bytes in the file
    for (int count = 0; count < 11; ++count)
        log.write(line);
    EXPECT_EQ(Numbers(), numbers());
    EXPECT_EQ(1100, File(path).length());
    log.write(line);
    EXPECT_EQ(Numbers({1}), numbers());
    EXPECT_EQ(1100, File(numbered(1)).length());
    writeFile(path, std::string(1024, 'x'));  // exactly the threshold: the record after the next rotates
    log.write(line);
    EXPECT_EQ(Numbers({1}), numbers());
    log.write(line);
    EXPECT_EQ(Numbers({1, 2}), numbers());
    EXPECT_EQ(1124, File(numbered(1)).length());
}

TEST_F(RotationTest, ClosesTheFileOnlyNearTheThreshold) {
    writeFile(path, std::string(2100, 'x'));
    const std::pair<unsigned long, bool> cases[] = {
        {0, false}, {3, true}, {4, true}, {5, false}, {4194304, false}};
    for (const auto& c : cases) {
        Log::setRotationSize(c.first);
        OpenRotationLog log(path);
        log.write("text");
        EXPECT_EQ(c.second, log.stream == nullptr) << c.first;
    }
}

TEST_F(RotationTest, ShiftsTheUnbrokenRunWithinTheLimit) {
    const struct {
        int limit;
        Numbers before, after;
        std::vector<std::string> contents;
    } cases[] = {{4, {}, {1}, {"live"}},
                 {4, {1, 3}, {1, 2, 3}, {"live", "1", "3"}},                           // the gap is filled
                 {4, {1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}, {"live", "1", "2", "3", "5"}},  // 4 went, 5 is beyond
                 {1, {1}, {1}, {"live"}},
                 {4, {0}, {1, 2}, {"live", "0"}},  // left by a rotation that was cut short
                 {4, {0, 1}, {1, 2, 3}, {"live", "0", "1"}}};
    for (const auto& c : cases) {
        Log::setExtensionLimits(c.limit);
        for (const int number : c.before)
            writeFile(numbered(number), std::to_string(number));
        writeFile(path, "live");
        OpenRotationLog log(path);
        EXPECT_EQ(0, log.reqRotation());
        EXPECT_EQ(c.after, numbers());
        for (std::size_t i = 0; i < c.after.size(); ++i) {
            EXPECT_EQ(c.contents[i], readFile(numbered(c.after[i])));
        }
        EXPECT_EQ(0, log.reqRotation());  // the file is empty now
        EXPECT_EQ(c.after, numbers());
        for (const int number : numbers())
            unlink(numbered(number).c_str());
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
    EXPECT_EQ(Numbers({0, 1, 2}), numbers());
    EXPECT_NE(std::string::npos, readFile(numbered(1)).find("first"));
    EXPECT_NE(std::string::npos, readFile(numbered(0)).find("second"));
    EXPECT_NE(std::string::npos, readFile(path).find("third"));
    EXPECT_EQ("/d/f.2", log.nextFile("/d/f.2147483647"));
    EXPECT_EQ("/d/f.log", log.nextFile("/d/f.log"));
}

TEST_F(RotationTest, DeletesBySizeAndClears) {
    OpenRotationLog log(path);
    for (const int number : {1, 2, 3, 4, 5, 7})
        writeFile(numbered(number), "x");
    log.deleteBySize(0);
    EXPECT_EQ((Numbers{1, 2, 3, 4, 5, 7}), numbers());  // rotation is off
    Log::setRotationSize(1024);
    log.deleteBySize(3072);
    EXPECT_EQ((Numbers{1, 2, 3, 7}), numbers());

    writeFile(folder / "other", "x");
    writeFile(path + ".old", "x");
    log.clear();
    std::vector<std::string> left;
    File(folder.path()).list(left);
    EXPECT_EQ(std::vector<std::string>{"other"}, left);
    log.write("again");
    EXPECT_TRUE(exists(path));

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    OpenRotationLog("").clear();  // without a path it removes nothing
    std::filesystem::current_path(before);
    EXPECT_TRUE(exists(folder / "other"));
}

TEST_F(RotationTest, SharesLockFilesButFollowsNoLink) {
    const std::string victim = folder / "victim";
    writeFile(victim, "secret");
    chmod(victim.c_str(), 0600);
    ASSERT_EQ(0, symlink(victim.c_str(), writeLockFile.c_str()));
    ASSERT_EQ(0, symlink((folder / "absent").c_str(), rotateLockFile.c_str()));
    const mode_t mask = umask(077);
    OpenRotationLog log(path);
    log.write("text");
    struct stat status {};
    ASSERT_EQ(0, stat(victim.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
    EXPECT_FALSE(exists(folder / "absent"));
    for (int round = 0; round < 2; ++round) {
        for (const std::string& file : {writeLockFile, rotateLockFile})
            unlink(file.c_str());
        log.write("creates them, and once more when they were removed");
        for (const std::string& file : {writeLockFile, rotateLockFile}) {
            ASSERT_EQ(0, stat(file.c_str(), &status));
            EXPECT_EQ(0666u, status.st_mode & 07777);
        }
    }
    umask(mask);
}

namespace {

constexpr int writersPerProcess = 2;
constexpr int recordsPerWriter = 150;

std::string record(int process, int writer, int number) {
    return std::to_string((process * writersPerProcess + writer) * recordsPerWriter + number) +
           std::string(static_cast<std::size_t>(number % 90), '=') + "end";
}

void writeAll(const std::string& path, int process) {
    RotationFileLog log(nullptr);
    log.setPath(path.c_str());
    std::vector<std::thread> writers;
    for (int writer = 0; writer < writersPerProcess; ++writer) {
        writers.emplace_back([&log, process, writer] {
            for (int number = 0; number < recordsPerWriter; ++number) {
                log.write(record(process, writer, number), Log::DEBUG);
            }
        });
    }
    for (std::thread& writer : writers)
        writer.join();
}

}  // namespace

TEST_F(RotationTest, KeepsEveryRecordOfThreadsAndProcesses) {
    constexpr int processes = 3;
    Log::setRotationSize(1);
    Log::setExtensionLimits(1000);
    for (int process = 1; process < processes; ++process) {
        if (fork() == 0) {
            writeAll(path, process);
            _exit(0);
        }
    }
    writeAll(path, 0);
    for (int status = -1; wait(&status) > 0;)
        EXPECT_EQ(0, status);

    std::map<std::string, int> lines;
    std::ifstream live(path);
    for (std::string line; std::getline(live, line);)
        ++lines[line.substr(line.rfind('\t') + 1)];
    for (int file = 0; file <= 1000; ++file) {
        std::ifstream in(numbered(file));
        for (std::string line; std::getline(in, line);)
            ++lines[line.substr(line.rfind('\t') + 1)];
    }
    EXPECT_TRUE(exists(numbered(10)));  // it did rotate
    EXPECT_EQ(static_cast<std::size_t>(processes * writersPerProcess * recordsPerWriter), lines.size());
    for (int process = 0; process < processes; ++process) {
        for (int writer = 0; writer < writersPerProcess; ++writer) {
            for (int number = 0; number < recordsPerWriter; ++number) {
                EXPECT_EQ(1, lines[record(process, writer, number)]) << record(process, writer, number);
            }
        }
    }
}

TEST_F(RotationTest, DebugLogOfTheProcessRotates) {
    Log::setRotationSize(1);
    ASSERT_TRUE(Log::setDebugLogPath(path.c_str()));
    EXPECT_EQ(path, Log::getDebugLogPath());
    Log::setDebugLogEnabled(true);
    for (int number = 0; number < 20; ++number)
        Log::debugLog()->write(std::string(100, 'x'), Log::DEBUG);
    Log::setDebugLogEnabled(false);
    Log::setDebugLogPath("");
    EXPECT_EQ(Numbers({1, 2}), numbers());
}

namespace {

enum Place { STREAM, BEFORE, SHIFT };

class ThrowingStream : public OutputStream {
public:
    explicit ThrowingStream(const std::function<void(Place)>& at) : reached(at) {}
    int write(const char*, int length) override {
        reached(STREAM);
        return length;
    }
    const std::function<void(Place)> reached;
};

class ThrowingLog : public OpenRotationLog {
public:
    ThrowingLog(ThrowingStream& target, const std::string& file)
        : OpenRotationLog(&target), reached(target.reached) {
        path = file;
    }
    bool setPath(const char*) override {
        reached(BEFORE);
        return true;
    }
    std::string nextFile(const std::string& file) override {
        reached(SHIFT);
        return OpenRotationLog::nextFile(file);
    }
    const std::function<void(Place)> reached;
};

}  // namespace

TEST_F(RotationTest, ReleasesItsLocksWhateverFails) {
    for (const Place place : {STREAM, BEFORE, SHIFT}) {
        for (const bool memory : {false, true}) {
            ThrowingStream stream([&](Place here) {
                if (here == place && memory) throw std::bad_alloc();
                if (here == place) throw IOException("broken");
            });
            ThrowingLog log(stream, path);
            writeFile(path, std::string(2000, 'x'));
            Log::setRotationSize(1);
            testing::internal::CaptureStderr();
            if (memory) {
                EXPECT_THROW(log.write("text"), std::bad_alloc) << place;
            } else {
                EXPECT_NO_THROW(log.write("text")) << place;
            }
            EXPECT_EQ(memory, testing::internal::GetCapturedStderr().find("broken\n") != 0) << place;
            EXPECT_TRUE(log.isFree()) << place << ' ' << memory;
            for (const int number : numbers())
                unlink(numbered(number).c_str());
        }
    }
}
