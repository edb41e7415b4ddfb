#include "KatdConf/HttpProxyConf.h"
#include "KatdConf/KatdConf.h"
#include "KatdConf/LogConf.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using namespace KATD_SPACE;
using katd_test::writeFile;
using Texts = std::vector<std::string>;

class Settings : public testing::Test {
protected:
    Settings() { std::filesystem::create_directories(dir / "conf"); }
    // Loads good settings behind other lines: the first line of a key counts.
    bool load(KatdConf& conf, const std::string& lines = "", const std::string& homeEnd = "") {
        writeFile(
            dir / "conf/katd.ini",
            "[katd]\n" + lines +
                "\ndata_conn_string = run/socket\ncache_file = data/cache\nmax_cache_entries = 20000000\n"
                "save_cache_interval = 24\nsave_cache_time = 23:59\nconn_pool_size = 08\n"
                "query_retry_times = 0\nctengine_query_timeout = 7\nquery_retry_interval = 99999999999\n"
                "server_address = host\nurls_list_path = urls\ndomains_list_path = domains\n");
        messages.clear();
        return conf.loadConfig((dir.path() + homeEnd).c_str());
    }
    static std::pair<unsigned, unsigned> retry(const KatdConf& conf) {
        std::pair<unsigned, unsigned> values;
        conf.getQueryTimeout(&values.first, &values.second);
        return values;
    }
    static std::pair<int, int> saveTime(const KatdConf& conf) {
        return {conf.getSaveCacheHour(), conf.getSaveCacheMinute()};
    }

    katd_test::TempDir dir;
    katd_test::CapturedMessages messages{2};  // information and errors
};

TEST_F(Settings, KatdConfStoresEverySettingOnce) {
    for (const char* homeEnd : {"", "/"}) {
        KatdConf conf;
        conf.setQueryTimeout(3, 500);
        EXPECT_EQ(retry(conf), std::pair(0U, 0U));  // not loaded yet
        ASSERT_TRUE(load(conf, "", homeEnd));
        EXPECT_TRUE(load(conf, "server_address = other"));
        EXPECT_EQ((Texts{conf.getSvcConnString(), conf.getCacheFilePath(), conf.getUrlsListPath(),
                         conf.getDomainsListPath(), conf.getMaxCacheEntries(), conf.getConnPoolSize(),
                         conf.getServerAddress()}),
                  (Texts{dir / "run/socket", dir / "data/cache", dir / "urls", dir / "domains", "20000000",
                         "08", "host"}));
        EXPECT_EQ(conf.getSaveCacheInterval(), 86400U);
        EXPECT_EQ(saveTime(conf), std::pair(23, 59));
        EXPECT_EQ(conf.getCTEngineTimeout(), 7);
        EXPECT_EQ(retry(conf), std::pair(0U, 2147483647U));
        conf.setQueryTimeout(2, 0);
        conf.setQueryTimeout(9, 9);  // an interval of 0 is the last
        EXPECT_EQ(retry(conf), std::pair(2U, 0U));
        EXPECT_EQ(messages.texts(), Texts{});
    }
}

TEST_F(Settings, KatdConfAcceptsWhatMayBeMissingOrAtTheEdge) {
    KatdConf conf, hourly;
    ASSERT_TRUE(load(conf,
                     "save_cache_time =\nurls_list_path =\nmax_cache_entries = 0\n"
                     "save_cache_interval = 1193046"));
    EXPECT_EQ(saveTime(conf), std::pair(-1, -1));
    EXPECT_EQ(conf.getUrlsListPath(), nullptr);
    EXPECT_EQ(conf.getSaveCacheInterval(), 4294965600U);
    EXPECT_EQ(messages.texts(), Texts{"INF fail to read save_cache_time from config file"});
    // Saved more than once a day: the hour does not count.
    ASSERT_TRUE(load(hourly, "save_cache_interval = 23\nsave_cache_time = 99:30"));
    EXPECT_EQ(saveTime(hourly), std::pair(-1, 30));
}

TEST_F(Settings, KatdConfNamesTheSettingThatItRefuses) {
    const auto expectRefusal = [this](const std::string& line, const std::string& message) {
        KatdConf conf;
        EXPECT_FALSE(load(conf, line)) << line;
        EXPECT_EQ(messages.texts(), Texts{"ERR " + message});
        EXPECT_TRUE(load(conf)) << line;  // a failed load is none
    };
    expectRefusal("cache_file=run/socket", "Bad configuration, cache_file is equal to data_conn_string");
    expectRefusal("save_cache_time=0a:30", "save_cache_time [0a:30]is bad value");
    expectRefusal("save_cache_time=10:+3", "save_cache_time [10:+3]is bad value");
    expectRefusal("save_cache_time=24:30", "save_cache_time [24] is bad hour");
    expectRefusal("save_cache_time=23:60", "save_cache_time [60] is bad minute");
    for (const std::string line :
         {"save_cache_time=7:30", "save_cache_time=07-30", "max_cache_entries=20000001",
          "max_cache_entries=-1", "max_cache_entries=4294967296", "save_cache_interval=0",
          "save_cache_interval=1193047", "save_cache_interval=1.5", "conn_pool_size=0", "query_retry_times=x",
          "ctengine_query_timeout=-5", "query_retry_interval=0"}) {
        const std::size_t equals = line.find('=');
        expectRefusal(line, line.substr(0, equals) + " [" + line.substr(equals + 1) + "] is bad value");
    }
    for (const std::string key :
         {"data_conn_string", "cache_file", "max_cache_entries", "save_cache_interval", "conn_pool_size",
          "query_retry_times", "ctengine_query_timeout", "query_retry_interval", "server_address"})
        expectRefusal(key + "=", "fail to read " + key + " from config file");
    KatdConf conf;
    EXPECT_FALSE(conf.loadConfig((dir / "x").c_str()));
    EXPECT_EQ(messages.texts().back(), "ERR fail to open katd config file [" + dir / "x/conf/katd.ini" + "]");
}

TEST_F(Settings, LogConfKeepsTheDefaultOfWhatIsUnusable) {
    struct Case {
        const char* text;
        int level, size, number;
        const char* path;
    };
    const Case cases[] = {
        {"log_level=DEBUG\nsize_limit=2048\nrotation_number=10\nlog_file_path=logs/d.log", 3, 2048, 10,
         "logs/d.log"},
        {"log_level=Info\nsize_limit=99999999999\nrotation_number=1", 0, 2147483647, 1, "log/katd.log"},
        {"log_level=warning", 2, 1024, 4, "log/katd.log"},
        {"log_level=error\nsize_limit=0\nrotation_number=0", 1, 1024, 4, "log/katd.log"},
        {"log_level=debugging\nsize_limit=\nrotation_number=3x\nlog_file_path=", 1, 1024, 4, "log/katd.log"}};
    for (const Case& c : cases) {
        writeFile(dir / "conf/katd.ini", std::string("[katd]\n") + c.text + "\n");
        LogConf conf(dir.path().c_str());
        EXPECT_TRUE(conf.load());
        EXPECT_EQ(conf.getLogLevel(), c.level) << c.text;
        EXPECT_EQ(conf.getSizeLimit(), c.size) << c.text;
        EXPECT_EQ(conf.getRotationNumber(), c.number) << c.text;
        EXPECT_EQ(conf.getLogFilePath(), dir / c.path) << c.text;
    }
    EXPECT_EQ(messages.lines().size(), 0U);
    LogConf elsewhere((dir / "x/").c_str());
    EXPECT_FALSE(elsewhere.load());
    EXPECT_EQ(messages.texts().back(), "ERR bad config path [" + dir / "x/conf/katd.ini" + "]");
    EXPECT_EQ(elsewhere.getLogFilePath(), dir / "x/log/katd.log");
}

TEST_F(Settings, HttpProxyConfDescribesAProxyOrNone) {
    const std::string path = dir / "proxy.ini", access = "ProxyAccess=1\n",
                      start = access + "ProxyServerAddress=p\n", basic = start + "ProxyAuth=Basic\n",
                      user = basic + "ProxyUserName=u\n",
                      encoded = user + "ProxyPassword=p\nProxyEncodedPassword=";
    struct Case {
        std::string lines, result;  // "" or address:port, scheme, user name and password
        std::string error;          // the one message above debug level
    };
    const Case cases[] = {
        {start, "p:80 NoAuth", ""},
        {"ProxyAccess = 1  ; on\nProxyServerAddress=q\nProxyPort=99999\n", "q:99999 NoAuth", ""},
        {"ProxyAccess=0\nProxyServerAddress=p\n", "", ""},
        {"ProxyAccess=01\n", "", "bad value of ProxyAccess [01]"},
        {"ProxyAccess=\n", "", "fail to read ProxyAccess from [" + path + "]"},
        {access, "", "fail to read ProxyServerAddress from [" + path + "]"},
        {start + "ProxyPort=8o\n", "p:80 NoAuth",
         "bad value of ProxyPort [8o], default value [80] will be used"},
        {start + "ProxyAuth=basic\n", "p:80 NoAuth",
         "bad value of ProxyAuth [basic], default value [NoAuth] will be used"},
        {basic, "", "fail to read ProxyUserName from [" + path + "]"},
        {user, "p:80 Basic u:", ""},
        {user + "ProxyPassword=p w\n", "p:80 Basic u:p w", ""},
        {encoded + "4a4B\n", "p:80 Basic u:JK", ""},
        {encoded + "\n", "p:80 Basic u:", ""},
        {encoded + "41x2\n", "p:80 Basic u:", ""}};
    HttpProxyConf none;
    none.loadConfig(path.c_str());
    EXPECT_EQ(messages.texts().back(), "ERR fail to open http proxy config file [" + path + "]");
    for (const Case& c : cases) {
        writeFile(path, "[Connectivity]\n" + c.lines);
        messages.clear();
        HttpProxyConf conf;
        conf.loadConfig(path.c_str());
        std::string result;
        if (conf.isValid()) {
            result = std::string(conf.getProxyServerAddress()) + ":" + conf.getProxyPort() + " " +
                     conf.getProxyAuth();
            if (*conf.getProxyUserName() != '\0')
                result += std::string(" ") + conf.getProxyUserName() + ":" + conf.getProxyPassword();
        }
        EXPECT_EQ(result, c.result) << c.lines;
        EXPECT_EQ(messages.texts(), Texts(c.error.empty() ? 0 : 1, "ERR " + c.error)) << c.lines;
    }
}

}  // namespace
