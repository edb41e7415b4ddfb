#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include "Exception.h"
#include "io/OutputStream.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;
using Texts = std::vector<std::string>;

namespace {

// Keeps what each write brought; fails while told to.
class ChunkStream : public OutputStream {
public:
    int write(const char* data, int length) override {
        if (failing) throw IOException("no room");
        chunks.emplace_back(data, static_cast<std::size_t>(length));
        return length;
    }
    bool failing = false;
    Texts chunks;
};

}  // namespace

TEST(FileOutputStream, OpensByModeAndTellsFailures) {
    katd_test::TempDir folder;
    const std::string path = folder / "f";
    const std::pair<int, const char*> cases[] = {{0, "X"}, {1, "oldX"}, {2, "oldX"}, {3, "Xld"}};
    for (const auto& c : cases) {
        katd_test::writeFile(path, "old");
        FileOutputStream(path.c_str(), c.first).write("X");
        EXPECT_EQ(c.second, katd_test::readFile(path)) << c.first;
    }
    EXPECT_THROW(FileOutputStream((folder / "missing").c_str(), 1), IOException);
    FileOutputStream standardError(STDERR_FILENO);
    standardError.close();
    EXPECT_THROW(standardError.write('x'), IOException);
    EXPECT_NE(-1, fcntl(STDERR_FILENO, F_GETFD));
    // The disk is full in the middle of a text.
    FileOutputStream stream(path.c_str(), 0);
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    const rlimit small{10, before.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    EXPECT_THROW(stream.write("twenty characters..."), IOException);
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(1, stream.write('y'));  // still open
}

TEST(BufferedOutputStream, CollectsUpToItsSize) {
    const struct {
        Texts writes, chunks, afterClose;
    } cases[] = {{{"", "abc"}, {}, {"abc"}},
                 {{"abc", "de"}, {"abcd"}, {"abcd", "e"}},
                 {{"abcd"}, {"abcd"}, {"abcd"}},  // as large as the buffer: straight through
                 {{"0123456789"}, {"0123456789"}, {"0123456789"}},
                 {{"a", "0123456"}, {"a012", "3456"}, {"a012", "3456"}},  // and so is the rest here
                 {{"a", "012345"}, {"a012"}, {"a012", "345"}}};
    for (const auto& c : cases) {
        ChunkStream target;
        BufferedOutputStream stream(target, 4);
        for (const std::string& text : c.writes)
            stream.write(text.data(), static_cast<int>(text.size()));
        EXPECT_EQ(c.chunks, target.chunks);
        target.failing = true;
        if (c.chunks != c.afterClose) {
            EXPECT_THROW(stream.close(), IOException);
        }
        target.failing = false;
        stream.close();  // what could not be written was kept
        EXPECT_EQ(c.afterClose, target.chunks);
    }
}
