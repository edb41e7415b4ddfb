#include <numeric>

#include "UrlServer/ServerFixture.h"

using namespace katd_test;

namespace {

class Classification : public ServerFixture {
protected:
    static int asked(const std::string& url) { return home().engineCalls("CSDKMain_ClassifyUrl", url); }
};

TEST_F(Classification, TheListsAnswerWithoutTheEngineAndUncounted) {
    const std::pair<const char*, unsigned> cases[] = {
        {"http://ADS.example/x?y", 12}, {"shop.example/tools/saw", 5}, {" ads.example ", 12}};
    for (const auto& [url, category] : cases) {
        const Result result = scan(url);
        EXPECT_EQ(std::vector<unsigned>{category}, result.categories) << url;
        EXPECT_TRUE(result.matched);
        EXPECT_EQ(0, asked(url));
    }
    EXPECT_EQ("0/0", counters());
    scan(" Other.example");
    EXPECT_EQ(1, asked(" Other.example")) << "the engine must get the URL as the client wrote it";
}

TEST_F(Classification, PassesTheEnginesNumbersOnAsBytes) {
    std::string many = "1";
    for (int i = 2; i <= 300; ++i)
        many += "," + std::to_string(i);
    home().rules("url some 0,5,0,300\nurl zero 256\nurl many " + many + "\n");
    EXPECT_EQ((std::vector<unsigned>{5, 44}), scan("some").categories);
    EXPECT_EQ((std::vector<unsigned>{0}), scan("zero").categories);
    std::vector<unsigned> first256(256);
    std::iota(first256.begin(), first256.end(), 1);
    first256[255] = 0;
    EXPECT_EQ(first256, scan("many").categories);
    EXPECT_EQ((std::vector<unsigned>{5}), scan("some", false, 1).categories);
}

TEST_F(Classification, AsksAgainOnlyWhileAnUnknownIsNotFinal) {
    const struct {
        const char* outcomes;
        unsigned retries;
        bool withRetry;
        std::vector<unsigned> categories;
        bool matched;
        int calls;
        const char *counted, *message;
    } cases[] = {
        {"unknown", 2, false, {}, false, 1, "1/0", "DataCenter returns Unknown for [u]"},
        {"unknown", 0, true, {}, false, 1, "1/0", "DataCenter returns Unknown for [u]"},
        {"final", 2, false, {}, true, 1, "1/1", "DataCenter returns Unknown for [u]"},
        {"5", 2, true, {5}, true, 1, "1/1", "Query [u] categories OK, retry times [0]"},
        {"unknown then 5", 2, true, {5}, true, 2, "1/0", "Query [u] categories OK, retry times [1]"},
        {"unknown then final", 2, true, {}, true, 2, "1/0", "Query [u] categories OK, retry times [1]"},
        {"unknown", 2, true, {}, false, 3, "1/0", "Query [u] categories fail, retry times [3]"},
        {"unknown", 4, true, {}, false, 5, "1/0", "query [u] time out"},
        {"fail 3 7 \"gone\"", 2, true, {}, false, 1, "1/0", "Failed: Type=3, Code=7, Desc=gone"},
        {"unknown then fail 1 2 \"x\"", 2, true, {}, false, 2, "2/0", "Failed: Type=1, Code=2, Desc=x"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.outcomes);
        KATD_SPACE::urlSvr->allUrls = KATD_SPACE::urlSvr->matchedUrls = 0;
        KATD_SPACE::ops.conf.setQueryTimeout(row.retries, 1);
        std::filesystem::remove(home().tracePath());
        messages.clear();
        home().rules(std::string("url u ") + row.outcomes + "\n");
        const Result result = scan("u", row.withRetry);
        EXPECT_EQ(row.categories, result.categories);
        EXPECT_EQ(row.matched, result.matched);
        EXPECT_EQ(row.calls, asked("u"));
        EXPECT_EQ(row.counted, counters());
        EXPECT_THAT(told(), testing::HasSubstr(row.message));
        const int failures = home().engineCalls("csdkstring_close");
        EXPECT_EQ(row.calls - failures, home().engineCalls("CSDKUrlCat_Close"))
            << "a result was not released";
    }
}

TEST_F(Classification, WithoutAnEngineOrABufferThereIsNoAnswer) {
    EXPECT_EQ(0u, scan("ads.example", false, 0).categories.size());
    EXPECT_EQ(0u, KATD_SPACE::UrlServerInstance::scanOneUrl("ads.example", nullptr, 1, false, nullptr));
    KATD_SPACE::urlSvr->closeEngine();
    EXPECT_FALSE(scan("ads.example").matched);
    EXPECT_EQ(1, home().engineCalls("CSDKMain_Close"));
}

}  // namespace
