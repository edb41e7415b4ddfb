#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <vector>

#include "Exception.h"
#include "io/OutputStream.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;
using namespace katd_test;

namespace {

const std::string headerUnit = "../../../modules/common-stl/include/io/OutputStream";
const std::string alreadyClosed = "Stream is already closed at " + headerUnit + ", line58";
const std::string diskFull = "No space left on device at io/OutputStream, line";

// What the action throws: "message at location".
std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (IOException& failure) {
        EXPECT_EQ(failure.getMessage(), failure.toString());  // not the type name
        return failure.getMessage() + " at " + failure.getErrorLocation();
    }
    return "nothing thrown";
}

// Keeps what each write brought; fails while told to.
class ChunkStream : public OutputStream {
public:
    int write(const char* data, int length) override {
        if (failing) throw IOException("no room");
        chunks.emplace_back(data, static_cast<std::size_t>(length));
        return length;
    }
    bool failing = false;
    std::vector<std::string> chunks;
};

}  // namespace

TEST(FileOutputStream, OpensByMode) {
    TempDir folder;
    const std::string path = folder / "f";
    const std::pair<int, const char*> cases[] = {{0, "X"}, {1, "oldX"}, {2, "oldX"}, {3, "Xld"}};
    for (const auto& c : cases) {
        writeFile(path, "old");
        FileOutputStream(path.c_str(), c.first).write("X");
        EXPECT_EQ(c.second, readFile(path)) << c.first;
    }
    const std::string missing = folder / "missing";
    EXPECT_EQ(missing + ": No such file or directory at io/OutputStream, line68",
              failureOf([&] { FileOutputStream(missing.c_str(), 1); }));
}

TEST(FileOutputStream, ClosesOnceAndNotStandardError) {
    FileOutputStream standardError(STDERR_FILENO);
    standardError.close();
    EXPECT_EQ(alreadyClosed, failureOf([&] { standardError.write('x'); }));
    EXPECT_NE(-1, fcntl(STDERR_FILENO, F_GETFD));
    EXPECT_EQ("Unimplemented at " + headerUnit + ", line91", failureOf([] { OutputStream().write("x"); }));
    FileOutputStream nothing(-1);
    EXPECT_EQ("Bad file descriptor at io/OutputStream, line94", failureOf([&] { nothing.close(); }));
    EXPECT_NO_THROW(nothing.close());
}

TEST(FileOutputStream, ReportsAFullDisk) {
    FileOutputStream full("/dev/full", 1);
    EXPECT_EQ(diskFull + "105", failureOf([&] { full.write('x'); }));
    EXPECT_EQ(diskFull + "113", failureOf([&] { full.write("x"); }));

    TempDir folder;
    FileOutputStream stream((folder / "f").c_str(), 0);
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    rlimit small = before;
    small.rlim_cur = 10;
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    EXPECT_EQ(diskFull + "113", failureOf([&] { stream.write("twenty characters..."); }));  // a short count
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(1, stream.write('y'));  // still open
}

TEST(BufferedOutputStream, CollectsUpToItsSize) {
    typedef std::vector<std::string> Texts;
    const struct {
        Texts writes, chunks, afterClose;
    } cases[] = {{{"abc"}, {}, {"abc"}},
                 {{"abc", "de"}, {"abcd"}, {"abcd", "e"}},
                 {{"abcd"}, {"abcd"}, {"abcd"}},  // as large as the buffer: straight through
                 {{"0123456789"}, {"0123456789"}, {"0123456789"}},
                 {{"a", "0123456"}, {"a012", "3456"}, {"a012", "3456"}},  // and so is the rest here
                 {{"a", "012345"}, {"a012"}, {"a012", "345"}},
                 {{"", "a", ""}, {}, {"a"}}};
    for (const auto& c : cases) {
        ChunkStream target;
        BufferedOutputStream stream(target, 4);
        for (const std::string& text : c.writes)
            stream.write(text.data(), static_cast<int>(text.size()));
        EXPECT_EQ(c.chunks, target.chunks);
        stream.close();
        EXPECT_EQ(c.afterClose, target.chunks);
        EXPECT_EQ(alreadyClosed, failureOf([&] { stream.write('x'); }));
    }
}

TEST(BufferedOutputStream, KeepsItsBytesWhileTheTargetFails) {
    ChunkStream target;
    {
        BufferedOutputStream stream(target, 2);
        target.failing = true;
        stream.write('a');
        EXPECT_THROW(stream.write('b'), IOException);
        EXPECT_THROW(stream.write('c'), IOException);  // full: nothing is written behind the buffer
        EXPECT_THROW(stream.close(), IOException);
        target.failing = false;
        stream.write('e');
        target.failing = true;
    }  // the destructor keeps its failure
    target.failing = false;
    { BufferedOutputStream(target, 0).write('z'); }
    EXPECT_THAT(target.chunks, testing::ElementsAre("ab", "z"));
}
