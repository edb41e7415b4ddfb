#include <sys/stat.h>

#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::UrlServer;
using testing::HasSubstr;

namespace {

class CachePersistence : public ServerFixture {
protected:
    static void learn(const std::string& url) {
        unsigned char byte = 0;
        home().rules("url " + url + " 9\n");
        KATD_SPACE::UrlServerInstance::scanOneUrl(url.c_str(), &byte, 1, false, nullptr);
        KATD_SPACE::urlSvr->handledRequest = true;
        home().rules("");
    }
    std::string temporary() const { return cachePath() + ".tmp"; }
};

TEST_F(CachePersistence, WhatWasLearntIsThereAfterARestart) {
    EXPECT_FALSE(UrlServer::saveCache(cachePath().c_str()));
    EXPECT_THAT(told(), HasSubstr("Katd has not handled any request"));
    learn("new.example");
    EXPECT_TRUE(UrlServer::saveCache(cachePath().c_str()));
    EXPECT_THAT(told(), HasSubstr("save cache to [" + temporary() + "] successfully."));
    EXPECT_FALSE(std::filesystem::exists(temporary()));

    delete KATD_SPACE::urlSvr;
    KATD_SPACE::urlSvr = new UrlServer;
    EXPECT_THAT(told(), HasSubstr("Load cache from [" + cachePath() + "] OK."));
    unsigned char byte = 0;
    EXPECT_EQ(1u, KATD_SPACE::UrlServerInstance::scanOneUrl("new.example", &byte, 1, false, nullptr));
    EXPECT_EQ(9, byte);
}

TEST_F(CachePersistence, AFailedSaveLeavesTheOldCacheWhole) {
    learn("first.example");
    ASSERT_TRUE(UrlServer::saveCache(cachePath().c_str()));
    const std::string whole = readFile(cachePath());
    learn("second.example");
    home().rules("save partial 3 28 \"no space left\"\n");
    EXPECT_FALSE(UrlServer::saveCache(cachePath().c_str()));
    EXPECT_THAT(told(), HasSubstr("DBG "));
    EXPECT_THAT(told(),
                HasSubstr("ASAPSDK::CSDKMain_SaveWebSecCache Failed : Type=3, Code=28, Desc=no space left"));
    EXPECT_EQ(whole, readFile(cachePath()));
    EXPECT_TRUE(std::filesystem::exists(temporary())) << "it is left as the engine left it";
}

TEST_F(CachePersistence, WhatStandsAtThePathDecides) {
    learn("a.example");
    std::filesystem::create_directory(cachePath());
    EXPECT_FALSE(UrlServer::saveCache(cachePath().c_str()));
    EXPECT_THAT(told(), HasSubstr("cache path [" + cachePath() + "] is a directory"));
    KATD_SPACE::urlSvr->loadCache();
    EXPECT_THAT(told(), HasSubstr("cache file [" + cachePath() + "] does not a file"));
    std::filesystem::remove_all(cachePath());
    KATD_SPACE::urlSvr->loadCache();
    EXPECT_THAT(told(), HasSubstr("cache file [" + cachePath() + "] does not exist"));

    writeFile(cachePath(), "no cache at all");
    KATD_SPACE::urlSvr->loadCache();
    EXPECT_THAT(told(), HasSubstr("ASAPSDK::CSDKMain_LoadWebSecCache Failed : Type="));
    EXPECT_THAT(told(), HasSubstr("[0] seconds spent to load cache"));

    // A link or a pipe at the temporary name is removed, not followed or waited for.
    std::filesystem::create_symlink(home() / "elsewhere", temporary());
    EXPECT_TRUE(UrlServer::saveCache(cachePath().c_str()));
    EXPECT_FALSE(std::filesystem::exists(home() / "elsewhere"));
    ASSERT_EQ(0, mkfifo(temporary().c_str(), 0600));
    EXPECT_TRUE(UrlServer::saveCache(cachePath().c_str()));

    const std::string nowhere = home() / "missing-folder/cache";
    EXPECT_FALSE(UrlServer::saveCache(nowhere.c_str()));
}

}  // namespace
