#ifndef KATD_KATDCONF_H
#define KATD_KATDCONF_H

#include <atomic>
#include <cstdint>
#include <string>

#include "Mutex.h"

namespace KATD_SPACE {

class IniUtils;

// The daemon's settings, read from section "katd" of the settings file. They are loaded once at start-up;
// afterwards any thread may read them, and only the two retry values change.
class KatdConf {
public:
    KatdConf() = default;
    ~KatdConf() = default;
    KatdConf(const KatdConf&) = delete;
    KatdConf& operator=(const KatdConf&) = delete;

    // Reads and checks conf/katd.ini below homeDir (null or "": the working directory). Returns true if all
    // settings are valid or were loaded before. Returns false at the first bad or missing one, which is
    // reported by its name; the settings before it have their new values. May throw std::bad_alloc.
    bool loadConfig(const char* homeDir);

    // Strings stay valid until the next load; they are not null, and "" before the first one. All paths start
    // with the home path.
    const char* getKatdHomePath() const { return homePath.c_str(); }
    const char* getConfigFilePath() const { return configFilePath.c_str(); }
    const char* getSvcConnString() const { return svcConnString.c_str(); }
    const char* getCacheFilePath() const { return cacheFilePath.c_str(); }
    const char* getMaxCacheEntries() const { return maxCacheEntries.c_str(); }
    const char* getConnPoolSize() const { return connPoolSize.c_str(); }
    const char* getServerAddress() const { return serverAddress.c_str(); }
    // Null if not set.
    const char* getUrlsListPath() const { return urlsListPath.empty() ? nullptr : urlsListPath.c_str(); }
    const char* getDomainsListPath() const {
        return domainsListPath.empty() ? nullptr : domainsListPath.c_str();
    }
    unsigned getSaveCacheInterval() const { return saveCacheInterval; }  // seconds
    int getCTEngineTimeout() const { return ctengineQueryTimeout; }      // seconds, 0: no limit
    int getSaveCacheHour() const { return saveCacheHour; }               // 0 to 23, -1: every hour
    int getSaveCacheMinute() const { return saveCacheMinute; }           // 0 to 59, -1: no time of day

    // Stores the number of retries and the pause before each in milliseconds. Beside a setQueryTimeout, one
    // may be the old and the other the new value. REQUIRES: neither pointer is null.
    void getQueryTimeout(unsigned* retryTimes, unsigned* retryInterval) const;
    // Replaces both. Does nothing if the present interval is 0, as before the load or after it was set to 0.
    void setQueryTimeout(unsigned retryTimes, unsigned retryInterval);

private:
    bool readPaths(IniUtils& ini);
    bool readCacheSettings(IniUtils& ini);
    bool readSaveCacheTime(IniUtils& ini);
    bool readQuerySettings(IniUtils& ini);
    void readListPaths(IniUtils& ini);

    QOR_SPACE::Mutex lock;                     // held by loadConfig and setQueryTimeout
    bool loaded QOR_GUARDED_BY(lock) = false;  // a load has succeeded
    std::string urlsListPath;                  // local URL list, empty: none
    std::string domainsListPath;               // local domain list, empty: none
    std::string homePath;        // home directory with a "/" at its end, or "": the working directory
    std::string configFilePath;  // the settings file
    std::string svcConnString;   // path of the service socket
    std::string cacheFilePath;   // the engine's category cache
    // Decimal digits as written, 0 to 20000000, for the engine's connection string.
    std::string maxCacheEntries;
    std::uint32_t saveCacheInterval = 0;               // seconds
    std::string connPoolSize;                          // decimal digits as written, at least 1, likewise
    std::atomic<std::uint32_t> queryRetryTimes{0};     // retries of a query; written under lock
    std::atomic<std::uint32_t> queryRetryInterval{0};  // milliseconds before each; written under lock
    std::string serverAddress;                         // host name of the classification service
    std::int32_t ctengineQueryTimeout = 0;             // seconds for one engine query, 0: no limit
    std::int32_t saveCacheHour = -1;                   // 0 to 23, -1: every hour
    std::int32_t saveCacheMinute = -1;                 // 0 to 59, -1: no time of day
};

}  // namespace KATD_SPACE

#endif
