// How katd starts, and the ways in which it does not.
#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;

namespace {

TEST(Startup, RefusesWithAStatusAndAMessage) {
    const Home home, badSettings(Settings{{"conn_pool_size", "many"}});
    home.rules("create fail 4 17 \"no licence\"\n");
    const std::string usage = std::string("usage: ") + KATD_BINARY + " -h | [http_proxy_config_file]\n";
    const struct {
        const Home& home;
        std::string katdDir;
        std::vector<std::string> arguments;
        std::string output, log;  // to output goes what is before the log takes over, and the usage
    } cases[] = {
        {home, "-", {}, "[ERR][UrlServer:", ""},
        {home, "", {}, "fail to get environment variable [KATD_DIR]\n", ""},
        {home, home / "rules", {}, "bad environment variable [KATD_DIR=" + (home / "rules") + "]\n", ""},
        {home, home / "log", {}, "fail to open config file [" + (home / "log/conf/katd.ini") + "]\n", ""},
        {home, home.path(), {"a", "b"}, usage, "Too many parameters"},
        {home, home.path(), {"-x"}, usage, "Bad argument [-x]"},
        {home, home.path(), {"-hh"}, usage, "Bad argument [-hh]"},
        {home, home.path() + "/", {"-h"}, usage, ""},
        {home, home.path(), {}, "", "create Failed : Type=4, Code=17, Desc=no licence"},
        {home, home.path(), {}, "", "urlServer is not valid"},
        {badSettings, badSettings.path(), {}, "", "conn_pool_size [many] is bad value"},
        {badSettings, badSettings.path(), {}, "", "fail to load katd config file."},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.output + row.log);
        std::filesystem::remove(row.home / "output");
        Daemon katd(row.home, row.arguments, {{"KATD_DIR", row.katdDir}});
        EXPECT_EQ(255, katd.waitForExit());
        EXPECT_THAT(katd.output(),
                    testing::ContainsRegex("^\nKatd Build Time: 2[^\n]*\nKatd Version: [0-9]"));
        EXPECT_THAT(katd.output(), HasSubstr(row.output));
        EXPECT_THAT(row.log.empty() ? "" : row.home.log(), HasSubstr(row.log));
    }
}

TEST(Startup, OneDaemonAHomeWhichNeedNotHaveRoomForThePid) {
    const Home home;
    const std::string pidFile = home / "data/katd.pid";
    std::filesystem::create_directory(pidFile);
    EXPECT_EQ(1, Daemon(home).waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("can't open " + pidFile + ": Is a directory"));
    std::filesystem::remove(pidFile);
    std::filesystem::create_symlink("/dev/full", pidFile);
    EXPECT_TRUE(Daemon(home).waitUntilServing());
    EXPECT_THAT(home.log(), HasSubstr("can't open " + pidFile + ": Invalid argument"));
    std::filesystem::remove(pidFile);

    Daemon first(home);
    ASSERT_TRUE(first.waitUntilServing());
    EXPECT_EQ(255, Daemon(home).waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("katd already running"));
    EXPECT_EQ(std::to_string(first.pid()) + "\n" + '\0', readFile(pidFile));
    EXPECT_EQ(std::filesystem::perms(0644), std::filesystem::status(pidFile).permissions());
    EXPECT_EQ(std::filesystem::perms(0666), std::filesystem::status(home.logPath()).permissions());
    EXPECT_TRUE(Client(home.socketPath()).ask("ads.example")) << "the first one serves on";
}

TEST(Startup, WithoutALogMessagesStayOnTheTerminal) {
    const Home home(Settings{{"log_file_path", "conf/katd.ini/katd.log"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    EXPECT_THAT(katd.output(),
                HasSubstr("setDebugLogPath fail with [" + (home / "conf/katd.ini/katd.log") + "]\n"));
    EXPECT_THAT(katd.output(), HasSubstr("] start url query service with [")) << "not held back in a buffer";
}

TEST(Startup, HandsTheEngineItsSettings) {
    const std::string proxySettings =
        "[Connectivity]\nProxyAccess = 1\nProxyServerAddress = p.test\nProxyPort = 80\n";
    const std::string basic = proxySettings + "ProxyAuth = Basic\nProxyUserName = u\n";
    const std::string plain = "ServerAddress=localhost;HttpConnPoolSize=4;WebSecCacheMaxEntries=1000";
    const std::string proxy = plain + ";ProxyAccess=1;ProxyServerAddress=p.test;ProxyPort=80;ProxyAuth=";
    const std::pair<std::string, std::string> cases[] = {
        {"", plain},
        {proxySettings, proxy + "NoAuth"},
        {basic, proxy + "Basic;ProxyUserName=u"},
        {basic + "ProxyEncodedPassword = 4a4B\n", proxy + "Basic;ProxyUserName=u;ProxyPassword=JK"},
    };
    for (const auto& [proxyFile, expected] : cases) {
        const Home home;
        if (!proxyFile.empty()) writeFile(home / "proxy.ini", proxyFile);
        Daemon katd(home, {home / "proxy.ini"});
        ASSERT_TRUE(katd.waitUntilServing());
        EXPECT_EQ(1, home.engineCalls("CSDKMain_Create", expected)) << readFile(home.tracePath());
    }
}

}  // namespace
