#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::ops;

namespace {

struct ControlRequests : ServerFixture {
    Connection connection;
};

TEST_F(ControlRequests, EachHasItsEffectOrIsRefused) {
    home().rules("host known.example 5\n");
    for (const char* url : {"known.example/1", "known.example/2", "known.example/3", "unknown.example"})
        ASSERT_TRUE(connection.client.ask(url));
    const std::string statistics = "INF All urls [4], matched from cache [3], percentage [%75]\n";
    const struct {
        std::string body, message;
        int level;
        unsigned times, interval;
    } steps[] = {
        {"urls_stat", statistics, 3, 2, 1},
        {"timeout=" + number(7) + number(500), "DBG set timeout [7:500]\n", 3, 7, 500},
        {"timeout=" + number(9) + number(9).substr(0, 3), "ERR Unknown ctrl request [timeout=\t]\n", 3, 7,
         500},
        {"log_level=" + number(4), "ERR bad loglevel in ctrl request, [4]\n", 3, 7, 500},
        {"log_level=" + number(0xFFFFFFFF), "ERR bad loglevel in ctrl request, [-1]\n", 3, 7, 500},
        {"log_level=" + number(1).substr(0, 3), "ERR Unknown ctrl request [log_level=\x01]\n", 3, 7, 500},
        {"reboot", "ERR Unknown ctrl request [reboot]\n", 3, 7, 500},
        {"urls_sta", "ERR Unknown ctrl request [urls_sta]\n", 3, 7, 500},
        {"log_level=" + number(1), "DBG set log_level [1]\n", 1, 7, 500},
        {"log_level=" + number(3), "", 3, 7, 500},  // the level before decides
        {"log_level=" + number(0), "DBG set log_level [0]\n", 0, 7, 500},
        {"reboot", "", 0, 7, 500},
        {"urls_stat, whatever follows", statistics, 0, 7, 500},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.body);
        messages.clear();
        EXPECT_TRUE(connection.client.control(step.body));
        EXPECT_EQ(step.message, told());
        EXPECT_EQ(step.level, ops.logLevel);
        unsigned times = 0, interval = 0;
        ops.conf.getQueryTimeout(&times, &interval);
        EXPECT_EQ(step.times, times);
        EXPECT_EQ(step.interval, interval);
    }
}

TEST_F(ControlRequests, SaveTheCacheAndReloadTheLists) {
    EXPECT_TRUE(connection.client.control("urls_stat"));
    EXPECT_TRUE(connection.client.control("save_cache"));
    EXPECT_THAT(told(), testing::HasSubstr("Katd has not handled any request"))
        << "control requests do not count";
    EXPECT_FALSE(connection.client.ask("late.example")->header.matched);
    EXPECT_TRUE(connection.client.control("save_cache"));
    EXPECT_TRUE(std::filesystem::exists(cachePath()));
    const std::string before = readFile(home() / "domains.list");
    writeFile(home() / "domains.list", listFile({"077|late.example"}));
    EXPECT_TRUE(connection.client.control("assis_reload"));
    EXPECT_EQ(std::vector<unsigned>{77}, connection.client.ask("late.example")->categories);
    EXPECT_FALSE(connection.client.ask("ads.example")->header.matched);
    writeFile(home() / "domains.list", before);
}

}  // namespace
