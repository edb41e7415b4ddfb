#include <fcntl.h>
#include <unistd.h>

#include "Exception.h"
#include "io/OutputStream.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;

TEST(FileOutputStream, OpensByModeAndReportsFailures) {
    katd_test::TempDir folder;
    const std::string path = folder / "f";
    for (const auto& [mode, text] :
         {std::pair(0, "X"), std::pair(1, "oldX"), std::pair(2, "oldX"), std::pair(3, "Xld")}) {
        katd_test::writeFile(path, "old");
        FileOutputStream(path.c_str(), mode).write("X");
        EXPECT_EQ(text, katd_test::readFile(path)) << mode;
    }
    EXPECT_THROW(FileOutputStream((folder / "missing").c_str(), 1), IOException);
    FileOutputStream standardError(STDERR_FILENO);
    standardError.close();
    EXPECT_THROW(standardError.write('x'), IOException);
    EXPECT_NE(-1, fcntl(STDERR_FILENO, F_GETFD));

    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    FileOutputStream stream(ends[1]);
    const auto message = [](const IOException& thrown) { return thrown.getMessage(); };
    EXPECT_THAT([&] { stream.write(std::string(1 << 20, 'x').c_str()); },  // more than a pipe holds
                testing::Throws<IOException>(testing::ResultOf(message, "Resource temporarily unavailable")));
    close(ends[0]);
}

TEST(BufferedOutputStream, CollectsUpToItsSize) {
    StringOutputStream target(0);
    BufferedOutputStream stream(target, 4);
    const char* const cases[][2] = {
        {"abc", ""}, {"de", "abcd"}, {"0123456", "abcde0123456"}, {"78", "abcde0123456"}};
    for (const auto& [text, passedOn] : cases) {
        stream.write(text);
        EXPECT_EQ(passedOn, target.getString());
    }
    stream.close();
    EXPECT_EQ("abcde012345678", target.getString());
    EXPECT_THROW(stream.write('x'), IOException);
    FileOutputStream full("/dev/full", 3);
    BufferedOutputStream kept(full, 4);
    kept.write("abc");
    EXPECT_THROW(kept.flush(), IOException);
    EXPECT_THROW(kept.flush(), IOException);  // the data is still there
}
