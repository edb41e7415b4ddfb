#include <fcntl.h>
#include <sys/stat.h>

#include <vector>

#include "engine/EngineFixture.h"

namespace katd_test {
namespace {

using RulesTest = EngineFixture;

TEST_F(RulesTest, MostExactRuleWins) {
    setRules(
        "# a comment\n"
        "  \t# another\n"
        "\n"
        "host   www.shop.example            1\n"
        "prefix www.shop.example/t          2\n"
        "prefix www.shop.example/tools      3\n"
        "prefix www.shop.example/tools/cut  4\r\n"
        "url    http://WWW.Shop.example/tools/saw  5,44,0,300,65535\n"
        "url    \"www.shop.example/a b\" final\n"
        "host   [2001:db8::1]  6\n"
        "prefix shop            7");
    const std::vector<std::pair<std::string, std::string>> answers = {
        {"www.shop.example", "1"},
        {"  FTP://WWW.SHOP.EXAMPLE:8080/x\r\n", "1"},
        {"www.shop.example?x", "1"},
        {"https://www.shop.example/toy", "2"},
        {"www.shop.example/tools", "3"},
        {"www.shop.example/tools/cute", "4"},
        {"www.shop.example/tools/saws", "3"},
        {"hTTp://www.shop.example/tools/saw", "5,44,0,300,65535"},
        {"www.shop.example/Tools/saw", "1"},  // a path has case
        {"www.shop.example/a b", "final"},
        {"[2001:db8::1]:80/", "6"},
        {"shop.example", "7"},
        {"www.shop.exampl", "unknown"},
        {"http://http://www.shop.example", "unknown"},  // one scheme is no part of the URL, two are
        {"", "unknown"},
    };
    for (const auto& [url, answer] : answers)
        EXPECT_EQ(answer, ask(url)) << url;
}

TEST_F(RulesTest, SequenceGoesOnToItsLastOutcomeAndStays) {
    setRules(
        "host a.example unknown then fail -2 110 \"no, \\ not now\" then 5,6 then final\nhost b.example 1 "
        "then 2\n");
    const std::string expected[] = {"unknown", "fail -2 110 no, \\ not now", "5,6", "final", "final"};
    for (const std::string& answer : expected)
        EXPECT_EQ(answer, ask("a.example"));
    // Each rule counts its own calls.
    EXPECT_EQ("1", ask("b.example/x"));
    EXPECT_EQ("2", ask("b.example/y"));
}

TEST_F(RulesTest, BadLineIsNamedOnceAndIgnored) {
    const std::vector<std::string> bad = {
        "host",
        "host a.example",
        "host a.example/x 5",
        "host a.example:80 5",
        "site a.example 5",
        "\"host\" a.example 5",
        "host a.example 5,",
        "host a.example 5, 6",
        "host a.example 65536",
        "host a.example -1",
        "host a.example \"5\"",
        "host a.example ok",
        "host a.example partial 1 2 \"x\"",
        "host a.example fail 1 2",
        "host a.example fail 1 2 x",
        "host a.example fail x 2 \"x\"",
        "host a.example fail 1 99999999999 \"x\"",
        "host a.example fail 1 2 \"x",
        "host a.example delay 10",
        "host a.example delay 5ms 5",
        "host a.example delay 5 delay 5 5",
        "host a.example 5 then",
        "host a.example 5 6",
        "url http:// 5",
        "create 5",
        "load partial 1 2 \"x\"",
        "save ok then",
    };
    std::string rules = "host b.example 1\n";
    for (const std::string& line : bad)
        rules += line + "\n";
    setRules(rules + "host b.example 2\nhost c.example 3\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ("unknown", ask("a.example"));
    EXPECT_EQ("1", ask("b.example"));  // the first rule of a subject is the one
    EXPECT_EQ("3", ask("c.example"));
    std::istringstream told(testing::internal::GetCapturedStderr());
    std::string line;
    for (unsigned number = 2; number < bad.size() + 3; ++number) {
        ASSERT_TRUE(std::getline(told, line)) << number;
        EXPECT_EQ(0U, line.find("asapsdk: " + rulesPath() + ":" + std::to_string(number) + ": ")) << line;
    }
    EXPECT_FALSE(std::getline(told, line)) << line;
}

TEST_F(RulesTest, ChangedFileIsReadAgainAndSequencesBeginAnew) {
    setRules("host a.example 1 then 2\n");
    EXPECT_EQ("1", ask("a.example"));
    EXPECT_EQ("2", ask("a.example"));
    setRules("host a.example 3 then 4\n");  // the same size
    EXPECT_EQ("3", ask("a.example"));
    writeFile(rulesPath(), "host a.example 50 then 60\n");  // the same inode
    EXPECT_EQ("50", ask("a.example"));
    const timespec times[] = {{0, UTIME_OMIT}, {1000, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, rulesPath().c_str(), times, 0));
    EXPECT_EQ("50", ask("a.example"));
    EXPECT_EQ("60", ask("a.example"));
}

TEST_F(RulesTest, WithoutRulesEverythingNewIsUnknown) {
    create("0");
    setRules("host a.example 1\n");
    EXPECT_EQ("1", ask("a.example"));
    testing::internal::CaptureStderr();
    ASSERT_EQ(0, std::remove(rulesPath().c_str()));
    EXPECT_EQ("unknown", ask("a.example"));
    EXPECT_EQ("unknown", ask("a.example"));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.npos, told.find("No such file"));
    EXPECT_EQ(told.find("asapsdk"), told.rfind("asapsdk")) << "told once:\n" << told;
    setRules("host a.example 2\n");
    EXPECT_EQ("2", ask("a.example"));
    unsetenv("ASAPSDK_RULES");
    EXPECT_EQ("unknown", ask("a.example"));
}

}  // namespace
}  // namespace katd_test
