#include <fcntl.h>

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

// Each line without "DATE TIME<tab>".
std::string withoutDates(const std::string& lines) {
    std::string result;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);)
        result += (line.size() > 19 && line[19] == '\t' ? line.substr(20) : "undated " + line) + "\n";
    return result;
}

}  // namespace

TEST(FileLog, WritesDatedLines) {
    LogEntry entry;
    TypedValue value;
    for (const auto& [name, text] : {std::pair("Host", "a b"), std::pair("HOST", "d\te")}) {
        value.text = text;
        entry.add({name, value});
    }
    EXPECT_EQ("a b", entry.getByName("host"));  // the first, in any case
    StringOutputStream stream(0), plain(0);
    FileLog log(&stream);
    log.write("a\nb");
    for (const int level : {0, 1, 2, 3, 7})
        log.write("text", static_cast<Log::LogLevel>(level));
    log.write("\n", Log::DEBUG);
    log.write(entry);
    Log::disableLog();
    log.write("dropped");
    Log::enableLog();
    EXPECT_EQ(
        "a\nundated b\ninfo\ttext\nwarning\ttext\nerror\ttext\ndebug\ttext\ninfo\ttext\ndebug\t\na b\td e\n",
        withoutDates(stream.getString()));
    Log(&plain).write(entry);
    EXPECT_EQ("Host=a b\nHOST=d\te\n==\n", plain.getString());
}

TEST(FileLog, FollowsItsPath) {
    TempDir folder;
    const std::string path = folder / "f.log", moved = folder / "moved", missing = folder / "missing/f.log";
    OpenFileLog log(path.c_str());
    OutputStream* const stream = log.stream;
    EXPECT_TRUE(log.setPath(path.c_str()));
    EXPECT_EQ(stream, log.stream);  // unchanged: kept open
    log.write("one");
    std::filesystem::rename(path, moved);
    EXPECT_TRUE(log.setPath(path.c_str()));
    log.write("two");
    EXPECT_EQ("one\n", withoutDates(readFile(moved)));
    EXPECT_EQ("two\n", withoutDates(readFile(path)));
    log.clear();
    log.write("three");

    const int fd = log.fd;
    EXPECT_FALSE(log.setPath(""));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));  // its own file is closed
    testing::internal::CaptureStderr();
    log.write("error output");
    EXPECT_FALSE(log.setPath(missing.c_str()));
    log.write("error output again");
    EXPECT_EQ("error output\nerror output again\n", withoutDates(testing::internal::GetCapturedStderr()));
    std::filesystem::create_directory(folder / "missing");
    EXPECT_TRUE(log.setPath(missing.c_str()));
    log.write("four");
    EXPECT_EQ("three\n", withoutDates(readFile(path)));
    EXPECT_EQ("four\n", withoutDates(readFile(missing)));
}
