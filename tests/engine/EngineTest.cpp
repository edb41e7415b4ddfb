// The stand-in engine: rules, learnt categories, saved caches.
#include <algorithm>
#include <cstdlib>

#include "support/Engine.h"

using namespace katd_test;

namespace {

class Engine : public testing::Test {
protected:
    ~Engine() override { CSDKMain_Close(engine); }
    // Replaces the engine by one that has learnt nothing.
    void start(const std::string& maxEntries, const std::string& rules) {
        CSDKMain_Close(engine);
        writeFile(dir / "rules", rules);
        setenv("ASAPSDK_RULES", (dir / "rules").c_str(), 1);
        engine = CSDKMain_Create(("ServerAddress=localhost;WebSecCacheMaxEntries=" + maxEntries).c_str());
    }
    // Asks "URL>ANSWER|...", where an answer is "5,44", "unknown", "final" or "fail CODE".
    void expect(const std::string& urlsAndAnswers) {
        std::istringstream rows(urlsAndAnswers);
        for (std::string url, expected; std::getline(std::getline(rows, url, '>'), expected, '|');) {
            const auto answer = askEngine(engine, url);
            EXPECT_EQ(expected, answer ? *answer : "fail " + std::to_string(CSDKException_GetErrorCode()))
                << url;
        }
    }

    TempDir dir;
    void* engine = nullptr;
};

TEST_F(Engine, AnswersByTheMostExactRuleInSequence) {
    const std::string bad =
        "host b.example 2|host a/x 5|host a 5,|host a 65536|host a fail 1 2 \"x|host a 5 6|create 5|site a "
        "5|";
    std::string rules = "host b.example unknown then fail -2 110 \"no\" then 5,6|" + bad +
                        "host www.example 1|prefix www.example/t 2|prefix www.example/tools 3|"
                        "url http://WWW.example/tools/saw 5,0,65535|url \"www.example/a b\" final";
    std::replace(rules.begin(), rules.end(), '|', '\n');
    testing::internal::CaptureStderr();
    start("0", rules);
    expect(
        "  FTP://WWW.EXAMPLE:80/x\r\n>1|https://www.example/toy>2|www.example/tools/saws>3|"
        "www.example/tools/saw>5,0,65535|www.example/Tools/saw>1|www.example/a b>final|a>unknown|"
        "b.example/x>unknown|b.example>fail 110|b.example>5,6|b.example>5,6");
    const std::string reported = testing::internal::GetCapturedStderr();  // each bad line once
    EXPECT_EQ(std::count(bad.begin(), bad.end(), '|'), std::count(reported.begin(), reported.end(), '\n'));
}

TEST_F(Engine, LearnsSavesAndLoads) {
    const std::string cache = dir / "cache", odd = "odd.example/a b\tc\nd\\e\x7f\xe4";
    start("3", "host a.example 1\nhost b.example 22,300\nhost odd.example 3\nhost c.example final\n");
    expect("a.example>1|b.example>22,300|" + odd + ">3|c.example>final");
    ASSERT_EQ(0, CSDKMain_SaveWebSecCache(engine, cache.c_str()));
    EXPECT_NE(0, CSDKMain_SaveWebSecCache(engine, "/dev/full"));
    const std::string whole = readFile(cache);
    start("2", "host d.example 4");  // keeps those that were learnt last
    expect("d.example>4");
    for (std::size_t i = 0; i < whole.size(); ++i) {
        std::string flipped = whole;
        flipped[i] = static_cast<char>(flipped[i] ^ 1);
        for (const std::string& damaged : {whole.substr(0, i), flipped}) {
            writeFile(cache, damaged);
            ASSERT_NE(0, CSDKMain_LoadWebSecCache(engine, cache.c_str())) << damaged;
        }
    }
    writeFile(dir / "rules", "");
    expect("d.example>4");  // a refused file changes nothing
    writeFile(cache, whole);
    ASSERT_EQ(0, CSDKMain_LoadWebSecCache(engine, cache.c_str()));
    expect("a.example>unknown|b.example>22,300|" + odd + ">3|c.example>unknown");
}

}  // namespace
