// A hanging engine ends the daemon, whoever holds whatever lock.
#include <fcntl.h>
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string expiredMessage(const std::string& url) {
    return "\tdebug\t[" + url + "] not return from ctengine, alarm timeout is [1], katd have to exit !\n";
}

// Takes the log's lock file as another process would.
int holdLog(const Home& home) {
    const int lockFile = open(("/tmp/" + home.logName() + ".lock").c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    EXPECT_EQ(0, fcntl(lockFile, F_SETLKW, &whole));
    return lockFile;
}

TEST(Watchdog, EndsTheDaemonAndNamesTheUrlAlthoughOtherCallsComeBack) {
    const Home home(Settings{{"ctengine_query_timeout", "1"}});
    home.rules("url hang.example hang\nhost quick.example 5\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client hanging(home.socketPath());
    Client quick(home.socketPath());
    ASSERT_TRUE(hanging.send(request("url0hang.example")));
    int answered = 0;
    while (quick.ask("quick.example/" + std::to_string(answered)))
        ++answered;
    EXPECT_GT(answered, 0);
    EXPECT_EQ(1, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr(expiredMessage("hang.example")));
}

TEST(Watchdog, TheEarlierOfTwoCallsEndsItByItsOwnLimit) {
    const Home home(Settings{{"ctengine_query_timeout", "1"}});
    home.rules("url first.example hang\nurl second.example hang\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client first(home.socketPath());
    ASSERT_TRUE(first.send(request("url0first.example")));
    ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "first.example") == 1; }));
    Client second(home.socketPath());
    ASSERT_TRUE(second.send(request("url0second.example")));
    EXPECT_EQ(1, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr(expiredMessage("first.example")));
    EXPECT_THAT(home.log(), Not(HasSubstr(expiredMessage("second.example"))));
}

TEST(Watchdog, ACallWithinItsLimitIsLeftAlone) {
    const Home home(Settings{{"ctengine_query_timeout", "1"}});
    home.rules("url slow.example delay 700 5\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client client(home.socketPath());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(std::vector<unsigned>{5}, client.ask("slow.example")->categories);
}

TEST(Watchdog, WithoutALimitACallMayHang) {
    const Home home(Settings{{"ctengine_query_timeout", "0"}});
    home.rules("url hang.example hang\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client hanging(home.socketPath());
    ASSERT_TRUE(hanging.send(request("url0hang.example")));
    ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "hang.example") == 1; }));
    EXPECT_EQ(Daemon::STILL_RUNNING, katd.waitForExit(2));
    EXPECT_TRUE(Client(home.socketPath()).ask("ads.example"));
}

TEST(Watchdog, EndsTheDaemonWhileAnotherProcessHoldsTheLog) {
    const Home home(Settings{{"ctengine_query_timeout", "1"}});
    home.rules("url hang.example hang\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client hanging(home.socketPath());
    ASSERT_TRUE(hanging.send(request("url0hang.example")));
    ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "hang.example") == 1; }));
    const int lockFile = holdLog(home);
    EXPECT_EQ(1, katd.waitForExit()) << "it waits for a lock that nobody gives back";
    close(lockFile);
    EXPECT_THAT(home.log(), Not(HasSubstr(expiredMessage("hang.example"))));
}

TEST(Watchdog, TheNetworkCheckEndsItWhileAnotherProcessHoldsTheLog) {
    for (const char* level : {"error", "debug"}) {
        const Home home(Settings{{"log_level", level}});
        home.rules("host www.example.com hang\n");
        writeFile(home / "syslog", "echo \"$@\" > " + (home / "events") + "\n");
        std::filesystem::permissions(home / "syslog", std::filesystem::perms::owner_all);
        Daemon katd(home, {},
                    {{"LD_PRELOAD", FAST_CLOCK},
                     {"FAST_CLOCK_FACTOR", "100"},
                     {"FAST_CLOCK_LIMIT_FACTOR", "20"},
                     {"WRITE_SYSLOG", home / "syslog"}});
        ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl") == 1; }));
        const int lockFile = holdLog(home);
        EXPECT_EQ(1, katd.waitForExit());
        close(lockFile);
        EXPECT_EQ("CheckNetFail\n", readFile(home / "events")) << level;
    }
}

TEST(Watchdog, AnAnswerThatComesTooLateStartsNoService) {
    const Home home;
    home.rules("host www.example.com delay 3000 5\n");
    Daemon katd(
        home, {},
        {{"LD_PRELOAD", FAST_CLOCK}, {"FAST_CLOCK_FACTOR", "100"}, {"FAST_CLOCK_LIMIT_FACTOR", "20"}});
    EXPECT_EQ(1, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("Check Net Status Fail, katd exits !"));
    EXPECT_THAT(home.log(), Not(HasSubstr("start url query service")));
}

}  // namespace
