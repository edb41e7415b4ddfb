#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "engine/EngineFixture.h"

namespace katd_test {
namespace {

using ApiTest = EngineFixture;

TEST_F(ApiTest, NullsAreRefusedOrIgnored) {
    create("1");
    EXPECT_EQ(nullptr, CSDKMain_Create(nullptr));
    EXPECT_EQ(0U, lastFailure().find("fail 1 0 "));
    EXPECT_EQ(nullptr, CSDKMain_ClassifyUrl(nullptr, "a.example"));
    EXPECT_EQ(nullptr, CSDKMain_ClassifyUrl(engine, nullptr));
    EXPECT_NE(0, CSDKMain_LoadWebSecCache(nullptr, "x"));
    EXPECT_NE(0, CSDKMain_SaveWebSecCache(engine, nullptr));
    const unsigned short* categories = reinterpret_cast<const unsigned short*>(this);
    unsigned short count = 1;
    CSDKUrlCat_GetCategories(nullptr, &categories, &count);
    EXPECT_EQ(nullptr, categories);
    EXPECT_EQ(0, count);
    EXPECT_EQ(0, CSDKUrlCat_GetFlags(nullptr));
    EXPECT_STREQ("", csdkstring_getstring(nullptr));
    CSDKUrlCat_Close(nullptr);
    CSDKMain_Close(nullptr);
    csdkstring_close(nullptr);
}

TEST_F(ApiTest, EveryThreadHasItsOwnFailure) {
    create("1");
    setRules("host a.example fail 1 11 \"first\"\nhost b.example fail 2 22 \"second\"\n");
    EXPECT_EQ("fail 1 11 first", ask("a.example"));
    std::thread([this] {
        EXPECT_EQ("fail 0 0 ", lastFailure());
        EXPECT_EQ("fail 2 22 second", ask("b.example"));
    }).join();
    EXPECT_EQ("fail 1 11 first", lastFailure());
}

TEST_F(ApiTest, TraceHasOneLineForEachCall) {
    setRules("host a.example 5,6\nhost b.example fail 1 2 \"x\"\n");
    CSDKThread_Attach();
    create("3");
    ask("a.example/x\ty\n");
    ask("b.example");
    CSDKThread_Detach();
    EXPECT_EQ(1U, traced("CSDKThread_Attach\t"));
    EXPECT_EQ(1U, traced("CSDKThread_Detach\t"));
    EXPECT_EQ(1U, traced("\tServerAddress=localhost;HttpConnPoolSize=4;WebSecCacheMaxEntries=3\tok"));
    EXPECT_EQ(1U, traced("\ta.example/x\\x09y\\x0a\t5,6"));
    EXPECT_EQ(1U, traced("\tb.example\tfail 1 2"));
    EXPECT_EQ(1U, traced("CSDKUrlCat_Close\t"));
    EXPECT_EQ(1U, traced("csdkstring_close\t"));
    std::istringstream lines(readFile(tracePath()));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(3, std::count(line.begin(), line.end(), '\t')) << line;
    }
}

// The trace tells that a call has begun: no need to guess how long that takes.
TEST_F(ApiTest, CallThatWaitsKeepsNoOtherWaiting) {
    create("10");
    setRules(
        "url hung.example  hang\n"
        "url slow.example  delay 600000 4\n"
        "save              hang\n"
        "host a.example    5\n");
    // These never end; the process does not wait for them.
    void* const handle = engine;
    std::thread([handle] { CSDKMain_ClassifyUrl(handle, "hung.example"); }).detach();
    std::thread([handle] { CSDKMain_ClassifyUrl(handle, "slow.example"); }).detach();
    const std::string unused = dir / "unused";
    std::thread([handle, unused] { CSDKMain_SaveWebSecCache(handle, unused.c_str()); }).detach();
    while (traced("\thang") != 2 || traced("\tdelay 600000 4") != 1)
        std::this_thread::yield();

    EXPECT_EQ("5", ask("a.example"));
    EXPECT_EQ("unknown", ask("other.example"));
    setRules("host a.example 6\n");  // the file can change meanwhile
    EXPECT_EQ("6", ask("a.example"));
    EXPECT_NE(0, CSDKMain_LoadWebSecCache(engine, (dir / "missing").c_str()));
    engine = nullptr;  // still in use: not closed
}

TEST_F(ApiTest, DelayComesBeforeTheOutcome) {
    setRules("host a.example delay 30 5 then delay 30 fail 1 2 \"x\"\nsave delay 30 ok\n");
    create("10");
    for (const char* answer : {"5", "fail 1 2 x"}) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(answer, ask("a.example"));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, CSDKMain_SaveWebSecCache(engine, (dir / "cache").c_str()));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

TEST_F(ApiTest, ManyThreadsShareOneHandle) {
    unsetenv("ASAPSDK_TRACE");
    constexpr unsigned threadCount = 8;
    constexpr unsigned calls = 50;
    // Every place of this sequence is given to one call alone.
    std::string rules = "url sequence.example 1";
    for (unsigned i = 2; i <= threadCount * calls; ++i)
        rules += " then " + std::to_string(i);
    setRules(rules + "\nhost a.example 7\n");
    create("20");
    const std::string path = dir / "cache";
    std::vector<std::atomic<unsigned>> given(threadCount * calls + 1);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            CSDKThread_Attach();
            for (unsigned i = 0; i < calls; ++i) {
                ++given[std::stoul(ask("sequence.example"))];
                EXPECT_EQ("7", ask("a.example/" + std::to_string(t) + "/" + std::to_string(i)));
                const std::string own = path + std::to_string(t);
                if (i % 10 == 0) {
                    EXPECT_EQ(0, CSDKMain_SaveWebSecCache(engine, own.c_str()));
                }
                if (i % 10 == 5) {
                    EXPECT_EQ(0, CSDKMain_LoadWebSecCache(engine, own.c_str()));
                }
            }
            CSDKThread_Detach();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (unsigned i = 1; i < given.size(); ++i)
        EXPECT_EQ(1U, given[i]) << i;
}

}  // namespace
}  // namespace katd_test
