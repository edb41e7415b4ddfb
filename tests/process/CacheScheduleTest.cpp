// When the category cache is saved; an hour takes a moment here.
#include <gmock/gmock.h>

#include <ctime>

#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;

namespace {

int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

// The local time of the record that holds the text: "HH:MM".
std::string timeOf(const std::string& log, const std::string& text) {
    const std::size_t at = log.find(text);
    if (at == std::string::npos) return "";
    const std::size_t line = log.rfind('\n', at) + 1;
    return log.substr(line + 11, 5);
}

TEST(CacheSchedule, SavesEveryInterval) {
    const Home home(Settings{{"save_cache_interval", "1"}});
    home.rules("host a.example 5\n");
    Daemon katd(home, {}, {{"LD_PRELOAD", FAST_CLOCK}, {"FAST_CLOCK_FACTOR", "7200"}});
    ASSERT_TRUE(katd.waitUntilServing());
    ASSERT_TRUE(eventually(
        [&] { return contains(home.log(), "Save cache to [" + (home / "data/cache") + "] failed."); }));
    EXPECT_THAT(home.log(), HasSubstr("Katd has not handled any request"));
    ASSERT_TRUE(Client(home.socketPath()).ask("a.example"));
    ASSERT_TRUE(eventually(
        [&] { return count(home.log(), "Save cache to [" + (home / "data/cache") + "] OK.") >= 2; }));
    EXPECT_THAT(home.log(), HasSubstr("Awake from sleeping, sleep time [3600], left time [0]"));
    EXPECT_THAT(readFile(home / "data/cache"), HasSubstr("a.example"));
}

TEST(CacheSchedule, StartsAtTheTimeOfDay) {
    // 20 minutes before the time; a poll each minute must not pass over it.
    std::tm local{};
    local.tm_year = 126;
    local.tm_mon = 2;
    local.tm_mday = 10;
    local.tm_hour = 3;
    local.tm_min = 10;
    local.tm_isdst = -1;
    const std::time_t start = std::mktime(&local);
    const Home home(Settings{{"save_cache_interval", "24"}, {"save_cache_time", "03:30"}});
    Daemon katd(home, {},
                {{"LD_PRELOAD", FAST_CLOCK},
                 {"FAST_CLOCK_FACTOR", "600"},
                 {"FAST_CLOCK_START", std::to_string(start)}});
    ASSERT_TRUE(katd.waitUntilServing());
    ASSERT_TRUE(Client(home.socketPath()).ask("a.example"));
    ASSERT_TRUE(eventually([&] { return contains(home.log(), "Save cache to ["); }));
    EXPECT_EQ("03:30", timeOf(home.log(), "Save cache to ["));
}

}  // namespace
