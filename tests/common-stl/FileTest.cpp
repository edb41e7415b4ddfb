#include <gmock/gmock.h>

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
    EXPECT_EQ("/d/x.log", File("/d", "x.log").getPath());
    EXPECT_EQ("/d/x.log", File("/d/", "x.log").getPath());
    EXPECT_EQ(std::filesystem::current_path() / "data/x", File("data/x").getAbsolutePath());
}

TEST(File, AnswersAboutAndChangesFiles) {
    TempDir folder;
    EXPECT_TRUE(File(folder / "a/b").mkdirs());
    const File file(folder / "a/f");
    EXPECT_EQ(-1, file.length());
    EXPECT_TRUE(file.createNewFile());
    EXPECT_FALSE(file.createNewFile());
    EXPECT_FALSE(File(folder / "a/f/x").mkdirs());
    std::filesystem::resize_file(folder / "a/f", 3000000000);  // a hole, no space is used
    EXPECT_EQ(sizeof(long) > 4 ? static_cast<long>(3000000000) : 2147483647L, file.length());
    std::vector<std::string> names = {"kept"};
    File(folder / "a").list(names);
    EXPECT_THAT(names, testing::UnorderedElementsAre("kept", "b", "f"));
    EXPECT_FALSE(File(folder / "a").remove());
    EXPECT_TRUE(File(folder / "a").removeAll());
    EXPECT_FALSE(File(folder / "a").exists());
}
