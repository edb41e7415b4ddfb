// How katd starts, and the ways in which it does not.
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

TEST(Startup, RefusesWithAStatusAndAMessage) {
    const Home home, badSettings(Settings{{"conn_pool_size", "many"}});
    home.rules("create fail 4 17 \"no licence\"\n");
    const std::string usage = std::string("usage: ") + KATD_BINARY + " -h | [http_proxy_config_file]\n";
    const struct {
        const Home& home;
        std::string katdDir;
        std::vector<std::string> arguments;
        std::string output;  // before the log takes over, and the usage
        std::string log;
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

TEST(Startup, OneDaemonAHome) {
    const Home home;
    Daemon first(home);
    ASSERT_TRUE(first.waitUntilServing());
    const std::string pidFile = std::to_string(first.pid()) + "\n" + '\0';
    EXPECT_EQ(pidFile, readFile(home / "data/katd.pid"));
    EXPECT_EQ(0644u, modeOf(home / "data/katd.pid"));
    EXPECT_EQ(0666u, modeOf(home.logPath()));
    EXPECT_EQ(0666u, modeOf("/tmp/" + home.logName() + ".lock"));

    Daemon second(home);
    EXPECT_EQ(255, second.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr("katd already running"));
    EXPECT_EQ(pidFile, readFile(home / "data/katd.pid"));
    EXPECT_TRUE(Client(home.socketPath()).ask("ads.example")) << "the first one serves on";
}

TEST(Startup, ThePidFileMustBeOpenedAndLockedButNotWritten) {
    const Home home;
    const std::string message = "can't open " + (home / "data/katd.pid") + ": ";
    std::filesystem::create_directory(home / "data/katd.pid");
    Daemon ending(home);
    EXPECT_EQ(1, ending.waitForExit());
    EXPECT_THAT(home.log(), HasSubstr(message + "Is a directory"));
    std::filesystem::remove(home / "data/katd.pid");
    std::filesystem::create_symlink("/dev/full", home / "data/katd.pid");
    Daemon serving(home);
    EXPECT_TRUE(serving.waitUntilServing());
    EXPECT_THAT(home.log(), HasSubstr(message + "Invalid argument"));
}

TEST(Startup, CreatesTheFoldersItNeedsAndWritesEachPieceOfAMessageAsARecord) {
    const Home home(
        {{"data_conn_string", "run/a/katd.sock"}, {"cache_file", "var/cache"}, {"log_level", "info"}});
    std::filesystem::remove(home / "log");
    std::filesystem::remove(home / "data");
    Daemon katd(home);
    ASSERT_TRUE(eventually([&] { return Client(home / "run/a/katd.sock").connected(); })) << katd.output();
    EXPECT_EQ(0777u, modeOf(home / "run/a"));
    EXPECT_EQ(0777u, modeOf(home / "log"));
    const std::string prefix = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\tdebug\t";
    EXPECT_THAT(home.log(), testing::ContainsRegex(prefix + "\\[INF\\]\\[UrlServer:[0-9]+\\] \n" + prefix +
                                                   "start url query service with [^\n]*run/a/katd.sock\\]\n" +
                                                   prefix + "\n"));
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
    const std::string address = "ProxyAccess = 1\nProxyServerAddress = proxy.test\nProxyPort = 3128\n";
    const std::string basic = address + "ProxyAuth = Basic\nProxyUserName = u\n";
    const std::string plain = "ServerAddress=localhost;HttpConnPoolSize=4;WebSecCacheMaxEntries=1000";
    const std::string proxy =
        plain + ";ProxyAccess=1;ProxyServerAddress=proxy.test;ProxyPort=3128;ProxyAuth=";
    const struct {
        std::string proxyFile;  // empty: missing
        std::string expected;
    } cases[] = {
        {"", plain},
        {address, proxy + "NoAuth"},
        {basic, proxy + "Basic;ProxyUserName=u"},
        {basic + "ProxyEncodedPassword = 4a4B", proxy + "Basic;ProxyUserName=u;ProxyPassword=JK"},
    };
    for (const auto& setting : cases) {
        const Home home;
        if (!setting.proxyFile.empty())
            writeFile(home / "proxy.ini", "[Connectivity]\n" + setting.proxyFile + "\n");
        Daemon katd(home, {home / "proxy.ini"});
        ASSERT_TRUE(katd.waitUntilServing());
        EXPECT_EQ(1, home.engineCalls("CSDKMain_Create", setting.expected)) << readFile(home.tracePath());
        EXPECT_THAT(home.log(), HasSubstr("conn str for ctengine [" + setting.expected + "]"));
    }
}

}  // namespace
