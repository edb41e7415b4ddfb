// How katd starts, and each way in which it does not.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;
using testing::Not;

namespace {

unsigned modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// A program for WRITE_SYSLOG that appends its arguments to the file "events" of the home.
std::string eventScript(const Home& home) {
    const std::string path = home / "syslog";
    writeFile(path, "echo \"$@\" >> " + (home / "events") + "\n");
    chmod(path.c_str(), 0700);
    return path;
}

TEST(Startup, RefusesWithAStatusAndAMessage) {
    const Home home;
    const std::string noFolder = home / "rules";
    const std::string usage = std::string("usage: ") + KATD_BINARY + " -h | [http_proxy_config_file]\n";
    const struct {
        std::vector<std::string> arguments;
        Daemon::Environment environment;
        std::vector<std::string> output;  // on the terminal, before the log takes over
        std::string log;                  // in the log
    } cases[] = {
        {{}, {{"KATD_DIR", "-"}}, {"[ERR][UrlServer:", "fail to get environment variable [KATD_DIR]\n"}, ""},
        {{}, {{"KATD_DIR", ""}}, {"fail to get environment variable [KATD_DIR]\n"}, ""},
        {{}, {{"KATD_DIR", noFolder}}, {"bad environment variable [KATD_DIR=" + noFolder + "]\n"}, ""},
        {{},
         {{"KATD_DIR", home / "log"}},
         {"fail to open config file [" + (home / "log/conf/katd.ini") + "]\n"},
         ""},
        {{"a", "b"}, {}, {usage}, "Too many parameters"},
        {{"-x"}, {}, {usage}, "Bad argument [-x]"},
        {{"-hh"}, {}, {usage}, "Bad argument [-hh]"},
        {{"-h"}, {{"KATD_DIR", home.path() + "/"}}, {usage}, ""},
    };
    for (const auto& refused : cases) {
        Daemon katd(home, refused.arguments, refused.environment);
        EXPECT_EQ(255, katd.waitForExit());
        const std::string output = katd.output();
        EXPECT_THAT(output, HasSubstr("\nKatd Build Time: 2"));
        EXPECT_THAT(output, HasSubstr("\nKatd Version: "));
        for (const std::string& text : refused.output)
            EXPECT_THAT(output, HasSubstr(text));
        EXPECT_THAT(refused.log.empty() ? "" : home.log(), HasSubstr(refused.log));
        std::filesystem::remove(home / "output");
    }
    EXPECT_FALSE(std::filesystem::exists(home / "data/katd.pid")) << "the command line is looked at first";
}

TEST(Startup, BadSettingsEndIt) {
    const Home home(Settings{{"conn_pool_size", "many"}});
    Daemon katd(home);
    EXPECT_EQ(255, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("conn_pool_size [many] is bad value"));
    EXPECT_THAT(home.log(), HasSubstr("fail to load katd config file."));
}

TEST(Startup, OneDaemonAHome) {
    const Home home;
    Daemon first(home);
    ASSERT_TRUE(first.waitUntilServing());
    const std::string pidFile = std::to_string(first.pid()) + "\n" + '\0';
    EXPECT_EQ(pidFile, readFile(home / "data/katd.pid"));
    EXPECT_EQ(0644u, modeOf(home / "data/katd.pid"));
    EXPECT_EQ(0666u, modeOf(home.logPath()));
    EXPECT_EQ(0666u, modeOf("/tmp/" + home.logName() + ".lock"));
    EXPECT_EQ(0666u, modeOf("/tmp/" + home.logName() + ".rlock"));

    Daemon second(home);
    EXPECT_EQ(255, second.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("katd already running"));
    EXPECT_EQ(pidFile, readFile(home / "data/katd.pid"));
    EXPECT_TRUE(Client(home.socketPath()).ask("ads.example")) << "the first one serves on";
}

TEST(Startup, ThePidFileMustBeWritable) {
    const Home home;
    std::filesystem::create_directory(home / "data/katd.pid");
    Daemon katd(home);
    EXPECT_EQ(1, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("can't open " + (home / "data/katd.pid") + ": Is a directory"));
}

TEST(Startup, CreatesTheFoldersItNeeds) {
    const Home home(
        {{"data_conn_string", "run/a/katd.sock"}, {"cache_file", "var/cache"}, {"log_level", "info"}});
    std::filesystem::remove(home / "log");
    std::filesystem::remove(home / "data");
    Daemon katd(home);
    ASSERT_TRUE(eventually([&] { return Client(home / "run/a/katd.sock").connected(); })) << katd.output();
    EXPECT_EQ(0777u, modeOf(home / "run/a"));
    EXPECT_EQ(0777u, modeOf(home / "log"));
    EXPECT_THAT(home.log(), HasSubstr("start url query service with [" + (home / "run/a/katd.sock") + "]"));
    EXPECT_THAT(home.log(), Not(HasSubstr("[DBG]")));
}

TEST(Startup, WithoutALogMessagesStayOnTheTerminal) {
    const Home home(Settings{{"log_file_path", "conf/katd.ini/katd.log"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    EXPECT_THAT(katd.output(),
                HasSubstr("setDebugLogPath fail with [" + (home / "conf/katd.ini/katd.log") + "]\n"));
    EXPECT_THAT(katd.output(), HasSubstr("] start url query service with [")) << "not held back in a buffer";
    EXPECT_THAT(katd.output(), Not(HasSubstr("[DBG]")));
}

TEST(Startup, HandsTheEngineItsSettings) {
    const Home home;
    const std::string base = "ServerAddress=localhost;HttpConnPoolSize=4;WebSecCacheMaxEntries=1000";
    const std::string proxy = base + ";ProxyAccess=1;ProxyServerAddress=proxy.test;ProxyPort=3128";
    const struct {
        std::string proxyFile;  // empty: none named; "-": named but missing
        std::string expected;
    } cases[] = {
        {"", base},
        {"-", base},
        {"ProxyAccess = 1\nProxyServerAddress = proxy.test\nProxyPort = 3128", proxy + ";ProxyAuth=NoAuth"},
        {"ProxyAccess = 1\nProxyServerAddress = proxy.test\nProxyPort = 3128\nProxyAuth = "
         "Basic\nProxyUserName = u",
         proxy + ";ProxyAuth=Basic;ProxyUserName=u"},
        {"ProxyAccess = 1\nProxyServerAddress = proxy.test\nProxyPort = 3128\nProxyAuth = "
         "Basic\nProxyUserName = u\n"
         "ProxyEncodedPassword = 4a4B",
         proxy + ";ProxyAuth=Basic;ProxyUserName=u;ProxyPassword=JK"},
    };
    for (const auto& setting : cases) {
        std::filesystem::remove(home / "proxy.ini");
        std::filesystem::remove(home.tracePath());
        if (setting.proxyFile.size() > 1)
            writeFile(home / "proxy.ini", "[Connectivity]\n" + setting.proxyFile + "\n");
        const std::vector<std::string> arguments = setting.proxyFile.empty()
                                                       ? std::vector<std::string>()
                                                       : std::vector<std::string>{home / "proxy.ini"};
        Daemon katd(home, arguments);
        ASSERT_TRUE(katd.waitUntilServing());
        EXPECT_EQ(1, home.engineCalls("CSDKMain_Create", setting.expected)) << readFile(home.tracePath());
        EXPECT_THAT(home.log(), HasSubstr("conn str for ctengine [" + setting.expected + "]"));
    }
}

TEST(Startup, AnEngineThatCannotBeOpenedEndsIt) {
    const Home home;
    home.rules("create fail 4 17 \"no licence\"\n");
    Daemon katd(home);
    EXPECT_EQ(255, katd.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("ASAPSDK::CSDKMain_create Failed : Type=4, Code=17, Desc=no licence"));
    EXPECT_THAT(home.log(), HasSubstr("urlServer is not valid"));
}

TEST(Startup, AServiceThatCannotBeReachedIsReportedAfterADelay) {
    const struct {
        Settings settings;
        std::string rules;
        std::string message;
        std::string event;
    } cases[] = {
        {{{"server_address", "no-such-host.invalid"}},
         "",
         "Cannot get correct dns, katd returned.",
         "CheckDnsFail\n"},
        {{},
         "host www.example.com fail 2 110 \"timed out\"\n",
         "ASAPSDK::CSDKMain_classify_url Failed: Type=2, Code=110, Desc=timed out,check Net Status Fail, "
         "katd exits !",
         "CheckNetFail\n"},
        {{}, "host www.example.com hang\n", "] \tCheck Net Status Fail, katd exits !", "CheckNetFail\n"},
    };
    for (const auto& failure : cases) {
        const Home home(failure.settings);
        home.rules(failure.rules);
        Daemon katd(home, {},
                    {{"LD_PRELOAD", FAST_CLOCK},
                     {"FAST_CLOCK_FACTOR", "1000"},
                     {"FAST_CLOCK_LIMIT_FACTOR", "20"},
                     {"WRITE_SYSLOG", eventScript(home)}});
        EXPECT_EQ(1, katd.waitForExit());
        EXPECT_EQ(failure.event, readFile(home / "events"));
        // Each piece of a message is a record of its own.
        const std::string text = failure.message.substr(failure.message.find('\t') + 1);
        EXPECT_THAT(home.log(), HasSubstr("\tdebug\t" + text + "\n"));
        EXPECT_THAT(home.log(), HasSubstr("Awake from sleeping, sleep time [300], left time [0]"));
        EXPECT_FALSE(std::filesystem::exists(home.socketPath()));
    }
}

}  // namespace
