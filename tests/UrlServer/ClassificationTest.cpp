#include <numeric>

#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::UrlServerInstance;

namespace {

class Classification : public ServerFixture {
protected:
    struct Result {
        std::vector<unsigned> categories;
        bool matched;
    };
    static Result scan(const std::string& url, bool withRetry = false, unsigned size = 256) {
        unsigned char bytes[256] = {};
        bool matched = true;
        const unsigned stored = UrlServerInstance::scanOneUrl(url.c_str(), bytes, size, withRetry, &matched);
        return {{bytes, bytes + stored}, matched};
    }
    static int asked(const std::string& url) { return home().engineCalls("CSDKMain_ClassifyUrl", url); }
};

TEST_F(Classification, TheListsAnswerWithoutTheEngineAndUncounted) {
    const struct {
        const char* url;
        unsigned category;
    } cases[] = {{"http://ADS.example/x?y", 12}, {"shop.example/tools/saw", 5}, {" ads.example ", 12}};
    for (const auto& listed : cases) {
        const Result result = scan(listed.url);
        EXPECT_EQ(std::vector<unsigned>{listed.category}, result.categories) << listed.url;
        EXPECT_TRUE(result.matched);
        EXPECT_EQ(0, asked(listed.url));
    }
    EXPECT_EQ("0/0", counters());
    scan("other.example");
    EXPECT_EQ(1, asked("other.example")) << "the engine must get the URL as the client wrote it";
    EXPECT_EQ("1/0", counters());
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
    EXPECT_EQ("4/4", counters());
}

TEST_F(Classification, AsksAgainOnlyWhileAnUnknownIsNotFinal) {
    const struct {
        const char* outcomes;
        bool withRetry;
        std::vector<unsigned> categories;
        bool matched;
        int calls;
        const char* counted;
        const char* message;
    } cases[] = {
        {"unknown", false, {}, false, 1, "1/0", "DataCenter returns Unknown for [u]"},
        {"final", false, {}, true, 1, "1/1", "DataCenter returns Unknown for [u]"},
        {"5", true, {5}, true, 1, "1/1", "Query [u] categories OK, retry times [0]"},
        {"unknown then 5", true, {5}, true, 2, "1/0", "Query [u] categories OK, retry times [1]"},
        {"unknown then unknown then final",
         true,
         {},
         true,
         3,
         "1/0",
         "Query [u] categories OK, retry times [2]"},
        {"unknown", true, {}, false, 3, "1/0", "Query [u] categories fail, retry times [3]"},
        {"fail 3 7 \"gone away\"", true, {}, false, 1, "1/0", "Failed: Type=3, Code=7, Desc=gone away"},
        {"unknown then fail 1 2 \"x\"", true, {}, false, 2, "2/0", "Failed: Type=1, Code=2, Desc=x"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.outcomes);
        KATD_SPACE::urlSvr->allUrls = KATD_SPACE::urlSvr->matchedUrls = 0;
        std::filesystem::remove(home().tracePath());
        messages.clear();
        home().rules(std::string("url u ") + expected.outcomes + "\n");
        const Result result = scan("u", expected.withRetry);
        EXPECT_EQ(expected.categories, result.categories);
        EXPECT_EQ(expected.matched, result.matched);
        EXPECT_EQ(expected.calls, asked("u"));
        EXPECT_EQ(expected.counted, counters());
        EXPECT_THAT(told(), testing::HasSubstr(expected.message));
        const int failures = home().engineCalls("csdkstring_close");
        EXPECT_EQ(expected.calls - failures, home().engineCalls("CSDKUrlCat_Close"))
            << "a result was not released";
    }
}

TEST_F(Classification, WithoutAnEngineOrRoomThereIsNoAnswer) {
    unsigned char byte = 0;
    bool matched = true;
    EXPECT_EQ(0u, UrlServerInstance::scanOneUrl("ads.example", &byte, 0, false, &matched));
    EXPECT_EQ(0u, UrlServerInstance::scanOneUrl("ads.example", nullptr, 1, false, nullptr));
    KATD_SPACE::urlSvr->closeEngine();
    EXPECT_EQ(0u, UrlServerInstance::scanOneUrl("ads.example", &byte, 1, false, &matched));
    EXPECT_FALSE(matched);
    EXPECT_EQ(1, home().engineCalls("CSDKMain_Close"));
}

}  // namespace
