#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "io/File.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;
using namespace katd_test;

TEST(File, DoesPathArithmetic) {
    const struct {
        const char *path, *name, *parent;
    } split[] = {{"/a/b", "b", "/a"}, {"/a", "a", "/"},    {"/", "", ""}, {"a/b", "b", "a"},
                 {"a", "a", ""},      {"a/b/", "", "a/b"}, {"", "", ""}};
    for (const auto& c : split) {
        EXPECT_EQ(c.name, File(c.path).getName()) << c.path;
        EXPECT_EQ(c.parent, File(c.path).getParent()) << c.path;
    }
    const std::pair<const char*, const char*> canonical[] = {
        {"/a/./b", "/a/b"}, {"/a//b", "/a/b"},    {"/a/b/../c", "/a/c"},     {"/../a", "/a"},
        {"/a/..", "/"},     {"/a/b/..", "/a/"},   {"/a/.", "/a/"},           {"/..", "/"},
        {"/../..", "/"},    {"/a/../../c", "/c"}, {"/././a/.//./b", "/a/b"}, {"/a.b/..c/d.", "/a.b/..c/d."}};
    for (const auto& c : canonical)
        EXPECT_EQ(c.second, File(c.first).getCanonicalPath()) << c.first;
    std::string deep;
    for (int i = 0; i < 40000; ++i)
        deep += "/a";
    EXPECT_EQ(deep + "/x", File(deep + "/b/../x").getCanonicalPath());
    EXPECT_EQ("/d/x.log", File("/d", "x.log").getPath());
    EXPECT_EQ("/d/x.log", File("/d/", "x.log").getPath());
    EXPECT_EQ(std::filesystem::current_path().string() + "/data/x", File("data/x").getAbsolutePath());
}

TEST(File, AnswersAboutFilesAndFolders) {
    TempDir folder;
    const File file(folder / "f");
    EXPECT_FALSE(file.isFile() || file.isDirectory());
    EXPECT_EQ(-1, file.length());
    EXPECT_TRUE(file.createNewFile());
    EXPECT_FALSE(file.createNewFile());
    EXPECT_EQ(0, file.length());
    EXPECT_EQ(-1, File(folder.path()).length());
    const int fd = open(file.getPath().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, ftruncate(fd, 3000000000LL));  // a hole, no space is used
    EXPECT_EQ(sizeof(long) > 4 ? static_cast<long>(3000000000LL) : 2147483647L, file.length());
    EXPECT_TRUE(file.isSame(fd));
    writeFile(folder / "other", "");
    EXPECT_FALSE(File(folder / "other").isSame(fd));
    EXPECT_FALSE(file.isSame(-1));
    close(fd);
    std::string name;
    const int temporary = File::createTempFile("log", folder.path() + "/", name);
    EXPECT_TRUE(fcntl(temporary, F_GETFD) & FD_CLOEXEC);
    EXPECT_THAT(name, testing::MatchesRegex(folder.path() + "/log[A-Za-z0-9]{6}"));
    close(temporary);
    long seconds = 0;
    EXPECT_TRUE(file.setLastModified(1000000000L) && file.lastModified(seconds));
    EXPECT_EQ(1000000000L, seconds);
    EXPECT_FALSE(file.isReadOnly());
    EXPECT_TRUE(file.setReadOnly() && file.isReadOnly());
    File readOnly = file;
    EXPECT_EQ(geteuid() == 0, readOnly.renameTo(folder / "g"));  // root may write everything
}

TEST(File, RenamesListsAndRemoves) {
    TempDir folder;
    EXPECT_TRUE(File(folder / "a/b/c").mkdirs());
    EXPECT_TRUE(File(folder / "a/b/c").mkdirs());
    EXPECT_FALSE(File(folder / "a").remove());
    writeFile(folder / "a/f", "new");
    writeFile(folder / "a/.old", "old");
    EXPECT_FALSE(File(folder / "a/f/x").mkdirs());
    EXPECT_FALSE(File("").mkdirs());
    std::vector<std::string> names = {"kept"};
    File(folder / "a").list(names);
    EXPECT_THAT(names, testing::UnorderedElementsAre("kept", "b", "f", ".old"));
    File(folder / "a/f").list(names);
    EXPECT_EQ(4u, names.size());

    File file(folder / "a/f");
    EXPECT_FALSE(file.renameTo(folder / "missing/x"));
    EXPECT_EQ(folder / "a/f", file.getPath());
    EXPECT_TRUE(file.renameTo(folder / "a/.old"));
    EXPECT_EQ("new", readFile(file.getPath()));
    EXPECT_TRUE(File(folder / "a").removeAll());
    EXPECT_FALSE(File(folder / "a").removeAll());
}
