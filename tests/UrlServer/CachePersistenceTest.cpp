#include <sys/stat.h>

#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::UrlServer;
using testing::HasSubstr;

namespace {

class CachePersistence : public ServerFixture {
protected:
    static void learn(const std::string& url) {
        home().rules("url " + url + " 9\n");
        EXPECT_EQ(9u, scan(url).categories.at(0));
        KATD_SPACE::urlSvr->handledRequest = true;
    }
    static bool save() { return UrlServer::saveCache(cachePath().c_str()); }
    const std::string temporary = cachePath() + ".tmp";
};

TEST_F(CachePersistence, WhatWasLearntIsThereAfterARestartAndAfterAFailedSave) {
    EXPECT_FALSE(save());
    EXPECT_THAT(told(), HasSubstr("Katd has not handled any request"));
    learn("new.example");
    EXPECT_TRUE(save());
    EXPECT_THAT(told(), HasSubstr("save cache to [" + temporary + "] successfully."));
    EXPECT_FALSE(std::filesystem::exists(temporary));
    learn("second.example");
    home().rules("save partial 3 28 \"no space left\"\n");
    EXPECT_FALSE(save());
    const std::string failure = "DBG ASAPSDK::CSDKMain_SaveWebSecCache Failed : Type=3, Code=28, Desc=";
    EXPECT_THAT(told(), HasSubstr(failure + "no space left"));
    EXPECT_TRUE(std::filesystem::exists(temporary)) << "it is left as the engine left it";

    delete KATD_SPACE::urlSvr;
    KATD_SPACE::urlSvr = new UrlServer;
    EXPECT_THAT(told(), HasSubstr("Load cache from [" + cachePath() + "] OK."));
    EXPECT_EQ(std::vector<unsigned>{9}, scan("new.example").categories);
}

TEST_F(CachePersistence, WhatIsAtThePathDecides) {
    learn("a.example");
    std::filesystem::create_directory(cachePath());
    EXPECT_FALSE(save());
    EXPECT_THAT(told(), HasSubstr("cache path [" + cachePath() + "] is a directory"));
    KATD_SPACE::urlSvr->loadCache();
    EXPECT_THAT(told(), HasSubstr("cache file [" + cachePath() + "] does not a file"));
    std::filesystem::remove_all(cachePath());
    KATD_SPACE::urlSvr->loadCache();
    EXPECT_THAT(told(), HasSubstr("cache file [" + cachePath() + "] does not exist"));
    writeFile(cachePath(), "no cache at all");
    KATD_SPACE::urlSvr->loadCache();
    EXPECT_THAT(told(), HasSubstr("INF ASAPSDK::CSDKMain_LoadWebSecCache Failed : Type="));

    // A link or a pipe at the temporary name is removed, not followed or waited for.
    std::filesystem::create_symlink(home() / "elsewhere", temporary);
    EXPECT_TRUE(save());
    EXPECT_FALSE(std::filesystem::exists(home() / "elsewhere"));
    ASSERT_EQ(0, mkfifo(temporary.c_str(), 0600));
    EXPECT_TRUE(save());
}

}  // namespace
