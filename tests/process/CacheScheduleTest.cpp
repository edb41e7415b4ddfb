// When the category cache is saved; an hour takes a moment here.

#include <ctime>

#include "support/Daemon.h"

using namespace katd_test;

namespace {

// The local times of the first two saves: "DD HH:MM, DD HH:MM", or less if there were less.
std::string firstSaves(const std::string& log) {
    std::string times;
    for (std::size_t at = 0; times.size() < 18; ++at) {
        at = log.find("\tSave cache to [", at);
        if (at == std::string::npos) break;
        times += (times.empty() ? "" : ", ") + log.substr(log.rfind('\n', at) + 9, 8);
    }
    return times;
}

TEST(CacheSchedule, StartsAtTheTimeOfDayAndGoesOnEveryIntervalWhateverTheClockDoes) {
    const std::string europe = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char* name;
        std::string timeOfDay, zone;
        const char* start;      // UTC
        int jumpAfter, jumpBy;  // seconds
        const char* saves;
    } cases[] = {
        {"no time of day", "", "UTC", "2026-03-10 02:10", 0, 0, "11 02:10, 12 02:10"},
        {"no jump", "02:30", "UTC", "2026-03-10 02:10", 0, 0, "10 02:30, 11 02:30"},
        {"02:30 is left out", "02:30", europe, "2026-03-29 00:50", 0, 0, "30 02:30, 31 02:30"},
        {"02:30 comes twice", "02:30", europe, "2026-10-24 23:50", 0, 0, "25 02:30, 26 01:30"},
        {"set back before", "02:30", "UTC", "2026-03-10 02:20", 300, -3600, "10 02:30, 11 02:30"},
        {"set back after", "02:30", "UTC", "2026-03-10 02:20", 900, -3600, "10 02:30, 11 01:30"},
        {"set over it", "02:30", "UTC", "2026-03-10 02:20", 300, 1800, "11 02:30, 12 02:30"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        std::tm utc{};
        ASSERT_NE(nullptr, strptime(row.start, "%Y-%m-%d %H:%M", &utc));
        const std::time_t start = timegm(&utc);
        const Home home(
            {{"save_cache_interval", "24"}, {"save_cache_time", row.timeOfDay}, {"log_level", "info"}});
        Daemon::Environment clock = {
            {"LD_PRELOAD", FAST_CLOCK}, {"TZ", row.zone}, {"FAST_CLOCK_START", std::to_string(start)}};
        if (row.jumpAfter != 0) {
            clock["FAST_CLOCK_JUMP_AT"] = std::to_string(start + row.jumpAfter);
            clock["FAST_CLOCK_JUMP_BY"] = std::to_string(row.jumpBy);
        }
        Daemon katd(home, {}, clock);
        ASSERT_TRUE(eventually([&] { return firstSaves(home.log()).size() == 18; })) << home.log();
        EXPECT_EQ(row.saves, firstSaves(home.log()));
    }
}

}  // namespace
