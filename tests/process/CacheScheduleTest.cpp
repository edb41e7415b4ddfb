// When the category cache is saved; an hour takes a moment here.
#include <gmock/gmock.h>

#include <ctime>

#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;

namespace {

TEST(CacheSchedule, SavesEveryInterval) {
    const Home home(Settings{{"save_cache_interval", "1"}});
    home.rules("host a.example 5\n");
    Daemon katd(home, {}, {{"LD_PRELOAD", FAST_CLOCK}, {"FAST_CLOCK_FACTOR", "7200"}});
    ASSERT_TRUE(katd.waitUntilServing());
    const std::string save = "\tSave cache to [" + (home / "data/cache") + "] ";
    ASSERT_TRUE(eventually([&] { return contains(home.log(), save + "failed."); }));
    EXPECT_THAT(home.log(), HasSubstr("Katd has not handled any request"));
    ASSERT_TRUE(Client(home.socketPath()).ask("a.example"));
    ASSERT_TRUE(eventually([&] {
        const std::string log = home.log();
        return log.find(save + "OK.") != log.rfind(save + "OK.");
    }));
    EXPECT_THAT(home.log(), HasSubstr("Awake from sleeping, sleep time [3600], left time [0]"));
    EXPECT_THAT(readFile(home / "data/cache"), HasSubstr("a.example"));
}

// The local times of the first two saves: "YYYY-MM-DD HH:MM".
std::vector<std::string> firstSaves(const std::string& log) {
    std::vector<std::string> times;
    for (std::size_t at = 0; times.size() < 2; ++at) {
        at = log.find("\tSave cache to [", at);
        if (at == std::string::npos) break;
        times.push_back(log.substr(log.rfind('\n', at) + 1, 16));
    }
    return times;
}

TEST(CacheSchedule, StartsAtTheTimeOfDayAndGoesOnEveryIntervalWhateverTheClockDoes) {
    const std::string europe = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char* name;
        std::string zone;
        const char* start;  // UTC
        int jumpAfter;      // seconds
        int jumpBy;
        std::vector<std::string> saves;
    } cases[] = {
        {"no jump", "UTC", "2026-03-10 02:10", 0, 0, {"2026-03-10 02:30", "2026-03-11 02:30"}},
        {"02:30 is left out", europe, "2026-03-29 00:50", 0, 0, {"2026-03-30 02:30", "2026-03-31 02:30"}},
        {"02:30 comes twice", europe, "2026-10-24 23:50", 0, 0, {"2026-10-25 02:30", "2026-10-26 01:30"}},
        {"set back before", "UTC", "2026-03-10 02:20", 300, -3600, {"2026-03-10 02:30", "2026-03-11 02:30"}},
        {"set back after", "UTC", "2026-03-10 02:20", 900, -3600, {"2026-03-10 02:30", "2026-03-11 01:30"}},
        {"set over it", "UTC", "2026-03-10 02:20", 300, 1800, {"2026-03-11 02:30", "2026-03-12 02:30"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::tm utc{};
        ASSERT_NE(nullptr, strptime(row.start, "%Y-%m-%d %H:%M", &utc));
        const std::time_t start = timegm(&utc);
        const Home home({{"save_cache_interval", "24"}, {"save_cache_time", "02:30"}, {"log_level", "info"}});
        Daemon::Environment clock = {
            {"LD_PRELOAD", FAST_CLOCK}, {"TZ", row.zone}, {"FAST_CLOCK_START", std::to_string(start)}};
        if (row.jumpAfter != 0) {
            clock["FAST_CLOCK_JUMP_AT"] = std::to_string(start + row.jumpAfter);
            clock["FAST_CLOCK_JUMP_BY"] = std::to_string(row.jumpBy);
        }
        Daemon katd(home, {}, clock);
        ASSERT_TRUE(eventually([&] { return firstSaves(home.log()).size() == 2; })) << home.log();
        EXPECT_EQ(row.saves, firstSaves(home.log()));
    }
}

}  // namespace
