#include <fcntl.h>
#include <sys/stat.h>

#include "support/TempDir.h"
#include "util/Log.h"

using namespace QOR_SPACE;
using namespace katd_test;

namespace {

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
    const std::string path = folder / "f.log", moved = folder / "moved", fifo = folder / "fifo";
    const int lowest = dup(0);
    close(lowest);
    FileLog log(path.c_str());
    log.write("one");
    EXPECT_TRUE(log.setPath(path.c_str()));
    std::filesystem::rename(path, moved);
    log.write("two");
    EXPECT_TRUE(log.setPath(path.c_str()));
    log.write("lost");
    log.clear();
    log.write("three");
    EXPECT_EQ("one\ntwo\n", withoutDates(readFile(moved)));

    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(log.setPath(""));
    log.write("error output");
    for (const bool hasReader : {false, true}) {
        const int reader = hasReader ? open(fifo.c_str(), O_RDONLY | O_NONBLOCK) : -1;
        EXPECT_FALSE(log.setPath(fifo.c_str()));
        close(reader);
    }
    log.write("error output again");
    EXPECT_EQ("error output\nerror output again\n", withoutDates(testing::internal::GetCapturedStderr()));
    EXPECT_TRUE(log.setPath("/dev/null"));
    EXPECT_TRUE(log.setPath(moved.c_str()));
    EXPECT_EQ("three\n", withoutDates(readFile(path)));
    log.close();
    EXPECT_EQ(-1, fcntl(lowest, F_GETFD));  // no file is left open
}
