#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include "engine/EngineFixture.h"

namespace katd_test {
namespace {

using RulesTest = EngineFixture;

TEST_F(RulesTest, MostExactRuleWins) {
    setRules(
        "  \t# a comment\n"
        "\n"
        "host   www.shop.example            1\n"
        "prefix www.shop.example/t          2\n"
        "prefix www.shop.example/tools      3\n"
        "prefix www.shop.example/tools/cut  4\r\n"
        "url    http://WWW.Shop.example/tools/saw  5,44,0,300,65535\n"
        "url    \"www.shop.example/a b\" final\n"
        "host   [2001:db8::1]  6\n"
        "prefix shop            7");
    // A path has case; one scheme is no part of the URL, two are.
    const std::pair<const char*, const char*> answers[] = {
        {"  FTP://WWW.SHOP.EXAMPLE:8080/x\r\n", "1"},
        {"www.shop.example?x", "1"},
        {"https://www.shop.example/toy", "2"},
        {"www.shop.example/tools", "3"},
        {"www.shop.example/tools/cute", "4"},
        {"www.shop.example/tools/saws", "3"},
        {"hTTp://www.shop.example/tools/saw", "5,44,0,300,65535"},
        {"www.shop.example/Tools/saw", "1"},
        {"www.shop.example/a b", "final"},
        {"[2001:db8::1]:80/", "6"},
        {"shop.example", "7"},
        {"www.shop.exampl", "unknown"},
        {"http://http://www.shop.example", "unknown"}};
    for (const auto& [url, answer] : answers)
        EXPECT_EQ(answer, ask(url)) << url;
}

TEST_F(RulesTest, SequenceGoesOnToItsLastOutcomeAndStays) {
    setRules(
        "host a.example unknown then fail -2 110 \"no, \\ not now\" then 5,6 then final\n"
        "host b.example 1 then 2\n");
    for (const char* answer : {"unknown", "fail -2 110 no, \\ not now", "5,6", "final", "final"})
        EXPECT_EQ(answer, ask("a.example"));
    // Each rule counts its own calls.
    EXPECT_EQ("1", ask("b.example/x"));
    EXPECT_EQ("2", ask("b.example/y"));
}

TEST_F(RulesTest, EveryThreadHasItsOwnFailure) {
    setRules("host a.example fail 1 11 \"first\"\nhost b.example fail 2 22 \"second\"\n");
    EXPECT_EQ("fail 1 11 first", ask("a.example"));
    std::thread([this] {
        EXPECT_EQ("fail 0 0 ", lastFailure());
        EXPECT_EQ("fail 2 22 second", ask("b.example"));
    }).join();
    EXPECT_EQ("fail 1 11 first", lastFailure());
}

TEST_F(RulesTest, BadLineIsNamedOnceAndIgnored) {
    std::string rules =
        "host a|host a/x 5|host a:80 5|site a 5|\"host\" a 5|host a 5,|host a 5, 6|host a 65536|host a -1|"
        "host a \"5\"|host a ok|host a partial 1 2 \"x\"|host a fail 1 2|host a fail 1 2 x|host a fail x 2 "
        "\"x\"|"
        "host a fail 1 99999999999 \"x\"|host a fail 1 2 \"x|host a delay 10|host a delay 5ms 5|"
        "host a 5 then|host a 5 6|url http:// 5|create 5|load partial 1 2 \"x\"|save ok then|host b 2|";
    std::replace(rules.begin(), rules.end(), '|', '\n');
    setRules("host b 1\n" + rules + "host c 3\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ("unknown", ask("a"));
    EXPECT_EQ("1", ask("b"));  // the first rule of a subject is the one
    EXPECT_EQ("3", ask("c"));
    std::istringstream told(testing::internal::GetCapturedStderr());
    std::string line;
    for (unsigned number = 2; number < 28; ++number) {
        ASSERT_TRUE(std::getline(told, line)) << number;
        EXPECT_EQ(0U, line.find("asapsdk: " + rulesPath + ":" + std::to_string(number) + ": ")) << line;
    }
    EXPECT_FALSE(std::getline(told, line)) << line;
}

TEST_F(RulesTest, ChangedFileIsReadAgainAndSequencesBeginAnew) {
    setRules("host a.example 1 then 2\n");
    EXPECT_EQ("1", ask("a.example"));
    setRules("host a.example 3 then 4\n");  // the same size
    EXPECT_EQ("3", ask("a.example"));
    writeFile(rulesPath, "host a.example 50 then 60\n");  // the same inode
    EXPECT_EQ("50", ask("a.example"));
    const timespec times[] = {{0, UTIME_OMIT}, {1000, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, rulesPath.c_str(), times, 0));
    EXPECT_EQ("50", ask("a.example"));
    EXPECT_EQ("60", ask("a.example"));
    create("0");  // learns nothing
    std::filesystem::remove(rulesPath);
    testing::internal::CaptureStderr();
    EXPECT_EQ("unknown", ask("a.example"));
    EXPECT_EQ("unknown", ask("a.example"));
    EXPECT_EQ("asapsdk: no rules, since " + rulesPath + " cannot be read: No such file or directory\n",
              testing::internal::GetCapturedStderr());  // told once
}

}  // namespace
}  // namespace katd_test
