// How the daemon ends when the engine hangs or its service is unreachable, with and without the locks held.

#include "faults/Faults.h"
#include "process/HeldLog.h"
#include "support/Client.h"

using namespace katd_test;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string expiredMessage(const std::string& url) {
    return "\tdebug\t[" + url + "] not return from ctengine, alarm timeout is [1], katd have to exit !\n";
}

TEST(LateQuery, EndsTheDaemonAndIsNamedAmongOthers) {
    const Home home(Settings{{"ctengine_query_timeout", "1"}, {"log_level", "error"}});
    home.rules("host hang.example hang\nhost quick.example 5\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client first(home.socketPath()), second(home.socketPath()), quick(home.socketPath());
    ASSERT_TRUE(quick.ask("quick.example/before"));
    ASSERT_TRUE(first.send(request("url0quick.example/first") + request("url0hang.example/1")));
    ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "hang.example/1") == 1; }));
    ASSERT_TRUE(second.send(request("url0hang.example/2")));
    EXPECT_TRUE(first.receive()) << "an answer that is ready must not wait for the next one";
    EXPECT_TRUE(quick.ask("quick.example"));
    while (quick.ask("quick.example")) {
    }
    EXPECT_EQ(1, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr(expiredMessage("hang.example/1")));
    EXPECT_THAT(home.log(), Not(HasSubstr(expiredMessage("hang.example/2"))));
}

TEST(LateQuery, EndsTheDaemonWithoutALogOrAThread) {
    for (const bool isLogHeld : {true, false}) {
        const Home home(Settings{{"ctengine_query_timeout", "1"}});
        home.rules("url hang.example hang\n");
        Faults faults(home, "pthread_create", EAGAIN);
        if (!isLogHeld) faults.armAll();  // before the network check starts the watchdog's thread
        Daemon::Environment environment = faults.environment();
        environment["ASAPSDK_TRACE"] = home.tracePath();
        Daemon katd(home, {}, environment);
        ASSERT_TRUE(katd.waitUntilServing());
        faults.disarm();
        Client hanging(home.socketPath());
        ASSERT_TRUE(hanging.ask("ads.example"));
        if (!isLogHeld) faults.armAll();
        ASSERT_TRUE(hanging.send(request("url0hang.example")));
        ASSERT_TRUE(
            eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "hang.example") == 1; }));
        const int lockFile = isLogHeld ? holdLog(home) : -1;
        EXPECT_EQ(1, katd.waitForExit()) << "it waits for a lock that is never released, or for the call";
        close(lockFile);
        EXPECT_EQ(!isLogHeld, contains(home.log(), expiredMessage("hang.example")));
    }
}

enum class Trouble { NONE, LOG_HELD_BEFORE, LOG_HELD_DURING, NO_THREADS, PROGRAM_HANGS };

struct Outage {
    Trouble trouble;
    Settings settings;
    std::string rules, message, event;  // message: the first one
};

class Unavailable : public testing::TestWithParam<Outage> {};

TEST_P(Unavailable, IsReportedAfterADelay) {
    const Outage& outage = GetParam();
    const Home home(outage.settings);
    home.rules(outage.rules);
    const std::string program = home / "syslog";
    writeFile(program, "echo \"$@\" >> " + (home / "events") + "\n" +
                           (outage.trouble == Trouble::PROGRAM_HANGS ? "sleep 600\n" : ""));
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    Faults faults(home, "pthread_create", EAGAIN);
    if (outage.trouble == Trouble::NO_THREADS) faults.armAll();
    Daemon katd(home, {},
                faults.environment({{"LD_PRELOAD", FAST_CLOCK},
                                    {"FAST_CLOCK_FACTOR", "500"},
                                    {"FAST_CLOCK_LIMIT_FACTOR", "30"},
                                    {"WRITE_SYSLOG", program}}));
    int lockFile = -1;
    if (outage.trouble == Trouble::LOG_HELD_BEFORE || outage.trouble == Trouble::LOG_HELD_DURING) {
        ASSERT_TRUE(eventually([&] { return contains(home.log(), outage.message); }));
        lockFile = holdLog(home);
    }
    EXPECT_EQ(1, katd.waitForExit());
    close(lockFile);
    EXPECT_EQ(outage.event, readFile(home / "events"));
    EXPECT_THAT(home.log(), HasSubstr("\tdebug\t" + outage.message));
    EXPECT_THAT(home.log(), Not(HasSubstr("start url query service")));
    if (lockFile != -1) return;
    EXPECT_THAT(home.log(), HasSubstr("Awake from sleeping, sleep time [300], left time [0]\n"));
    EXPECT_EQ(outage.event == "CheckDnsFail\n",
              contains(home.log(), "Cannot get correct dns, katd returned.\n"));
}

// clang-format off
const Settings noDns{{"server_address", "no-such-host.invalid"}}, errorsOnly{{"log_level", "error"}};
const std::string dnsMessage = "Check DNS with [no-such-host.invalid] failed\n", hangs = "host www.example.com hang\n",
                  lateMessage = "Check Net Status Fail, katd exits !\n",
                  failMessage = "ASAPSDK::CSDKMain_classify_url Failed: Type=2, Code=110, Desc=timed out,check Net Status Fail, "
                                "katd exits !\n";
const Outage outages[] = {
    {Trouble::NONE, noDns, "", dnsMessage, "CheckDnsFail\n"},
    {Trouble::LOG_HELD_DURING, noDns, "", dnsMessage, "CheckDnsFail\n"},
    {Trouble::PROGRAM_HANGS, {}, "host www.example.com fail 2 110 \"timed out\"\n", failMessage, "CheckNetFail\n"},
    {Trouble::NONE, {}, hangs, lateMessage, "CheckNetFail\n"},
    {Trouble::LOG_HELD_DURING, {}, hangs, lateMessage, "CheckNetFail\n"},
    {Trouble::LOG_HELD_BEFORE, errorsOnly, hangs, "conn str for ctengine", "CheckNetFail\n"},
    {Trouble::NO_THREADS, {}, hangs, lateMessage, "CheckNetFail\n"},
    {Trouble::NONE, {}, "host www.example.com delay 3000 5\n", lateMessage, "CheckNetFail\n"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Outages, Unavailable, testing::ValuesIn(outages));

TEST(Signals, HangUpsAreIgnoredAndAnAlarmEndsTheDaemonEvenIfItsParentBlocksIt) {
    const Home home;
    sigset_t alarmOnly, before;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarmOnly, &before);
    Daemon katd(home);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ASSERT_TRUE(katd.waitUntilServing());
    for (const int signal : {SIGHUP, SIGPIPE}) {
        katd.kill(signal);
        EXPECT_TRUE(Client(home.socketPath()).ask("ads.example"));
    }
    katd.kill(SIGALRM);
    EXPECT_EQ(1, katd.waitForExit());
}

}  // namespace
