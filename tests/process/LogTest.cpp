// The debug log of the real daemon.
#include <gmock/gmock.h>

#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;

namespace {

TEST(DaemonLog, AMessageIsThreeRecords) {
    const Home home(Settings{{"log_level", "error"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    EXPECT_TRUE(Client(home.socketPath()).control("reboot"));
    const std::string prefix = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\tdebug\t";
    EXPECT_THAT(home.log(), testing::ContainsRegex(prefix + "\\[ERR\\]\\[UrlServer:[0-9]+\\] \n" + prefix +
                                                   "Unknown ctrl request \\[reboot\\]\n" + prefix + "\n"));
}

TEST(DaemonLog, TwoDaemonsWithLogsOfOneNameLoseNothingWhenTheyRotate) {
    const Home first(Settings{{"size_limit", "1"}, {"rotation_number", "60"}});
    const Home second(
        {{"size_limit", "1"}, {"rotation_number", "60"}, {"log_file_path", "log/" + first.logName()}});
    Daemon one(first);
    Daemon two(second);
    ASSERT_TRUE(one.waitUntilServing());
    ASSERT_TRUE(two.waitUntilServing());
    Client toOne(first.socketPath());
    Client toTwo(second.socketPath());
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(toOne.control("message " + std::to_string(i)));
        ASSERT_TRUE(toTwo.control("message " + std::to_string(i)));
    }
    for (const std::string& path : {first.logPath(), second / ("log/" + first.logName())}) {
        std::string all = readFile(path);
        for (int n = 1; n <= 60; ++n)
            all = readFile(path + "." + std::to_string(n)) + all;
        EXPECT_FALSE(std::filesystem::exists(path + ".0"));
        EXPECT_TRUE(std::filesystem::exists(path + ".1")) << "nothing was rotated";
        for (int i = 0; i < 100; ++i) {
            EXPECT_TRUE(contains(all, "\tUnknown ctrl request [message " + std::to_string(i) + "]\n")) << i;
        }
    }
}

}  // namespace
