
#include "io/File.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;
using namespace katd_test;

TEST(File, AnswersAboutAndChangesFiles) {
    EXPECT_EQ("/", File("/a").getParent());
    EXPECT_EQ("", File("/").getParent());
    EXPECT_EQ("/d/x.log", File("/d/", "x.log").getPath());
    for (const auto& [path, canonical] :
         {std::pair("/a/./b//c", "/a/b/c"), std::pair("/a/b/c/../../d", "/a/d"), std::pair("/..", "/"),
          std::pair("/./a/.", "/a/")})
        EXPECT_EQ(canonical, File(path).getCanonicalPath());
    TempDir folder;
    EXPECT_TRUE(File(folder / "a/b/c").mkdirs());
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
