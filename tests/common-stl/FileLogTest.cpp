#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "io/File.h"
#include "support/TempDir.h"
#include "util/Log.h"

using namespace QOR_SPACE;
using namespace katd_test;

namespace {

class OpenFileLog : public FileLog {
public:
    using FileLog::fd;
    using FileLog::FileLog;
    using FileLog::stream;
};

// The text behind "DATE TIME<tab>" of each line; a line without that prefix is kept with a mark.
std::string withoutPrefix(const std::string& lines) {
    const std::string stamp = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\t";
    std::string result;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
        const bool dated = testing::Value(line.substr(0, 20), testing::MatchesRegex(stamp));
        result += (dated ? line.substr(20) : "!" + line) + "\n";
    }
    return result;
}

}  // namespace

TEST(FileLog, WritesDatedLines) {
    StringOutputStream stream(0);
    FileLog log(&stream);
    log.write("a\nb");
    for (const int level : {0, 1, 2, 3, 7})
        log.write("text", static_cast<Log::LogLevel>(level));
    log.write("\n", Log::DEBUG);
    LogEntry entry;
    for (const char* text : {"a b", "c", "d\te"}) {
        NameValuePair<TypedValue> pair;
        pair.value.text = text;
        entry.add(pair);
    }
    log.write(entry);
    log.write(LogEntry());
    EXPECT_EQ(
        "a\n!b\ninfo\ttext\nwarning\ttext\nerror\ttext\ndebug\ttext\ninfo\ttext\ndebug\t\na b\tc\td e\n\n",
        withoutPrefix(stream.getString()));
}

TEST(FileLog, FollowsItsPath) {
    TempDir folder;
    const std::string path = folder / "f.log";
    OpenFileLog log(path.c_str());
    OutputStream* const stream = log.stream;
    EXPECT_TRUE(log.setPath(path.c_str()));
    EXPECT_EQ(stream, log.stream);  // unchanged: kept open
    EXPECT_TRUE(fcntl(log.fd, F_GETFD) & FD_CLOEXEC);
    log.write("one");
    ASSERT_EQ(0, rename(path.c_str(), (folder / "moved").c_str()));
    EXPECT_TRUE(log.setPath(log.getPath().c_str()));
    log.write("two");
    EXPECT_EQ("one\n", withoutPrefix(readFile(folder / "moved")));
    EXPECT_EQ("two\n", withoutPrefix(readFile(path)));
    log.clear();
    EXPECT_EQ(0, File(path).length());
    log.write("three");

    const int fd = log.fd;
    EXPECT_FALSE(log.setPath(nullptr));
    EXPECT_FALSE(log.setPath(""));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));  // its own file is closed
    testing::internal::CaptureStderr();
    log.close();  // not the log's to close
    log.write("error output");
    EXPECT_EQ("error output\n", withoutPrefix(testing::internal::GetCapturedStderr()));
    EXPECT_EQ("three\n", withoutPrefix(readFile(path)));
}

TEST(FileLog, SurvivesAPathThatCannotBeWritten) {
    TempDir folder;
    const std::string missing = folder / "missing/f.log";
    StringOutputStream stream(0);
    FileLog onStream(&stream);
    EXPECT_FALSE(onStream.setPath(missing.c_str()));
    onStream.write("kept");
    EXPECT_EQ("kept\n", withoutPrefix(stream.getString()));

    FileLog onFile((folder / "f.log").c_str());
    EXPECT_FALSE(onFile.setPath(missing.c_str()));
    onFile.write("dropped");
    ASSERT_EQ(0, mkdir((folder / "missing").c_str(), 0700));
    EXPECT_TRUE(onFile.setPath(missing.c_str()));
    onFile.write("written");
    EXPECT_EQ("", readFile(folder / "f.log"));
    EXPECT_EQ("written\n", withoutPrefix(readFile(missing)));

    FileLog full("/dev/full");
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(full.write("lost"));
    EXPECT_EQ("No space left on device\n", testing::internal::GetCapturedStderr());
}
