#include "KatdConf/HttpProxyConf.h"
#include "KatdConf/KatdConf.h"
#include "KatdConf/LogConf.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using namespace KATD_SPACE;
using namespace katd_test;

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

    TempDir dir;
    CapturedMessages messages{2};  // information and errors
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
        EXPECT_EQ(conf.getSaveCacheHour() * 100 + conf.getSaveCacheMinute(), 2359);
        EXPECT_EQ(conf.getCTEngineTimeout(), 7);
        EXPECT_EQ(retry(conf), std::pair(0U, 2147483647U));
        conf.setQueryTimeout(2, 0);
        conf.setQueryTimeout(9, 9);  // an interval of 0 is the last
        EXPECT_EQ(retry(conf), std::pair(2U, 0U));
        EXPECT_EQ(messages.texts(), Texts{});
    }
    KatdConf conf;
    ASSERT_TRUE(load(conf,
                     "save_cache_time = 99:30\nurls_list_path =\nmax_cache_entries = 0\n"
                     "save_cache_interval = 23"));
    EXPECT_EQ(conf.getSaveCacheHour(), -1);  // saved more than once a day: the hour does not count
    EXPECT_EQ(conf.getUrlsListPath(), nullptr);
}

TEST_F(Settings, KatdConfNamesTheSettingThatItRefuses) {
    const std::string bad = " is bad value";
    const std::pair<std::string, std::string> cases[] = {
        {"cache_file=run/socket", "Bad configuration, cache_file is equal to data_conn_string"},
        {"save_cache_time=0a:30", "save_cache_time [0a:30]is bad value"},
        {"save_cache_time=24:30", "save_cache_time [24] is bad hour"},
        {"save_cache_time=23:60", "save_cache_time [60] is bad minute"},
        {"save_cache_time=07-30", "save_cache_time [07-30]" + bad},
        {"max_cache_entries=20000001", "max_cache_entries [20000001]" + bad},
        {"max_cache_entries=4294967296", "max_cache_entries [4294967296]" + bad},
        {"save_cache_interval=0", "save_cache_interval [0]" + bad},
        {"save_cache_interval=1193047", "save_cache_interval [1193047]" + bad},
        {"conn_pool_size=0", "conn_pool_size [0]" + bad},
        {"query_retry_times=x", "query_retry_times [x]" + bad},
        {"ctengine_query_timeout=-5", "ctengine_query_timeout [-5]" + bad},
        {"query_retry_interval=0", "query_retry_interval [0]" + bad},
        {"cache_file=", "fail to read cache_file from config file"},
        {"server_address=", "fail to read server_address from config file"}};
    for (const auto& [line, message] : cases) {
        KatdConf conf;
        EXPECT_FALSE(load(conf, line)) << line;
        EXPECT_EQ(messages.texts(), Texts{"ERR " + message});
        EXPECT_TRUE(load(conf)) << line;  // the failed load is not counted as one
    }
    KatdConf conf;
    EXPECT_FALSE(conf.loadConfig((dir / "x").c_str()));
    EXPECT_EQ(messages.texts().back(), "ERR fail to open katd config file [" + dir / "x/conf/katd.ini" + "]");
}

TEST_F(Settings, LogConfKeepsTheDefaultOfWhatIsUnusable) {
    const std::pair<const char*, std::string> cases[] = {
        {"log_level=DEBUG\nsize_limit=2048\nrotation_number=10\nlog_file_path=logs/d.log",
         "3 2048 10 logs/d.log"},
        {"log_level=Info\nsize_limit=99999999999\nrotation_number=1", "0 2147483647 1 log/katd.log"},
        {"log_level=warning\nsize_limit=0\nrotation_number=0", "2 1024 4 log/katd.log"},
        {"log_level=debugging\nsize_limit=\nrotation_number=3x\nlog_file_path=", "1 1024 4 log/katd.log"}};
    for (const auto& [text, expected] : cases) {
        writeFile(dir / "conf/katd.ini", std::string("[katd]\n") + text + "\n");
        LogConf conf(dir.path().c_str());
        EXPECT_TRUE(conf.load());
        std::ostringstream result;
        result << conf.getLogLevel() << ' ' << conf.getSizeLimit() << ' ' << conf.getRotationNumber() << ' '
               << std::string(conf.getLogFilePath()).substr((dir / "").size());
        EXPECT_EQ(result.str(), expected) << text;
    }
    EXPECT_EQ(messages.lines().size(), 0U);
    LogConf elsewhere((dir / "x/").c_str());
    EXPECT_FALSE(elsewhere.load());
    EXPECT_EQ(messages.texts().back(), "ERR bad config path [" + dir / "x/conf/katd.ini" + "]");
}

// The corpus of the proxy fuzzer has more of these.
TEST_F(Settings, HttpProxyConfDescribesAProxyOrNone) {
    const std::string path = dir / "proxy.ini", start = "ProxyAccess=1\nProxyServerAddress=p\n",
                      user = start + "ProxyAuth=Basic\nProxyUserName=u\n",
                      encoded = user + "ProxyPassword=p\nProxyEncodedPassword=";
    // Lines, address:port, scheme, user name and password or nothing, the one message above debug level.
    const std::string cases[][3] = {
        {start, "p:80 NoAuth :", ""},
        {"ProxyAccess=01\n", "", "ERR bad value of ProxyAccess [01]"},
        {"ProxyAccess=1\n", "", "ERR fail to read ProxyServerAddress from [" + path + "]"},
        {start + "ProxyPort=8o\n",
         "p:80 NoAuth :", "ERR bad value of ProxyPort [8o], default value [80] will be used"},
        {user + "ProxyPassword=p w\n", "p:80 Basic u:p w", ""},
        {encoded + "4a4B\n", "p:80 Basic u:JK", ""},
        {encoded + "41x2\n", "p:80 Basic u:", ""}};
    for (const auto& [lines, expected, error] : cases) {
        writeFile(path, "[Connectivity]\n" + lines);
        messages.clear();
        HttpProxyConf conf;
        conf.loadConfig(path.c_str());
        const std::string result = std::string(conf.getProxyServerAddress()) + ":" + conf.getProxyPort() +
                                   " " + conf.getProxyAuth() + " " + conf.getProxyUserName() + ":" +
                                   conf.getProxyPassword();
        EXPECT_EQ(conf.isValid() ? result : "", expected) << lines;
        EXPECT_EQ(messages.texts(), Texts(error.empty() ? 0 : 1, error)) << lines;
    }
}

}  // namespace
