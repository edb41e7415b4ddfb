#include <gtest/gtest.h>

#include "KatdConf/KatdConf.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using KATD_SPACE::KatdConf;
using Texts = std::vector<std::string>;

class KatdConfFile : public testing::Test {
protected:
    // Loads good settings behind other lines: the first line of a key counts.
    bool load(KatdConf& conf, const std::string& lines = "", const std::string& homeEnd = "") {
        std::filesystem::create_directories(dir / "conf");
        katd_test::writeFile(
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

TEST_F(KatdConfFile, StoresEverySettingOnce) {
    for (const char* homeEnd : {"", "/"}) {
        KatdConf conf;
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
        EXPECT_EQ(messages.texts(), Texts{});
    }
}

TEST_F(KatdConfFile, AcceptsWhatMayBeMissingOrAtTheEdge) {
    KatdConf conf;
    ASSERT_TRUE(load(
        conf, "save_cache_time =\nurls_list_path =\nmax_cache_entries = 0\nsave_cache_interval = 1193046"));
    EXPECT_EQ(saveTime(conf), std::pair(-1, -1));
    EXPECT_EQ(conf.getUrlsListPath(), nullptr);
    EXPECT_EQ(conf.getSaveCacheInterval(), 4294965600U);
    EXPECT_EQ(messages.texts(), Texts{"INF fail to read save_cache_time from config file"});
    KatdConf hourly;  // saved more than once a day: the hour does not count
    ASSERT_TRUE(load(hourly, "save_cache_interval = 23\nsave_cache_time = 99:30"));
    EXPECT_EQ(saveTime(hourly), std::pair(-1, 30));
}

TEST_F(KatdConfFile, NamesTheSettingThatItRefuses) {
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

TEST_F(KatdConfFile, RetrySettingsChangeWhileTheIntervalIsNotZero) {
    KatdConf conf;
    conf.setQueryTimeout(3, 500);
    EXPECT_EQ(retry(conf), std::pair(0U, 0U));  // not loaded yet
    ASSERT_TRUE(load(conf));
    conf.setQueryTimeout(4294967295U, 500);
    EXPECT_EQ(retry(conf), std::pair(4294967295U, 500U));
    conf.setQueryTimeout(2, 0);
    conf.setQueryTimeout(9, 9);
    EXPECT_EQ(retry(conf), std::pair(2U, 0U));
}

}  // namespace
