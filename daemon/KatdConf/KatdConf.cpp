#include "KatdConf/KatdConf.h"

#include <limits>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdConf";

constexpr std::int32_t noUpperLimit = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t maxCacheEntriesLimit = 20000000;
constexpr std::uint32_t secondsPerHour = 3600;
constexpr std::uint32_t secondsPerDay = 86400;
constexpr std::int32_t saveCacheIntervalLimit = 1193046;  // hours; their seconds fit in 32 bits
static_assert(saveCacheIntervalLimit <= std::numeric_limits<std::uint32_t>::max() / secondsPerHour);

bool readText(IniUtils& ini, const char* key, std::string& text) {
    if (ConfReader::readValue(ini, ConfReader::katdSection, key, text)) return true;
    ERR_MSG("fail to read %s from config file", key);
    return false;
}

// Reads a number that consists of digits and lies between two limits, both included; text is the value as
// written.
bool readNumber(IniUtils& ini, const char* key, std::int32_t least, std::int32_t most, std::string& text,
                std::int32_t& number) {
    if (!readText(ini, key, text)) return false;
    if (Utils::isDigit(text.c_str())) {
        number = Utils::toInt32(text.c_str());
        if (number >= least && number <= most) return true;
    }
    ERR_MSG("%s [%s] is bad value", key, text.c_str());
    return false;
}

}  // namespace

bool KatdConf::loadConfig(const char* homeDir) {
    QOR_SPACE::Monitor monitor(lock);
    if (loaded) return true;
    if (homeDir != nullptr && *homeDir != '\0') homePath = ConfReader::homePathOf(homeDir);
    configFilePath = homePath + ConfReader::settingsFile;
    DBG_MSG("Katd config file [%s]", configFilePath.c_str());

    IniUtils ini(configFilePath.c_str());
    if (!ini.opened) {
        ERR_MSG("fail to open katd config file [%s]", configFilePath.c_str());
        return false;
    }
    if (!readPaths(ini) || !readCacheSettings(ini) || !readSaveCacheTime(ini) || !readQuerySettings(ini))
        return false;
    readListPaths(ini);
    loaded = true;
    return true;
}

bool KatdConf::readPaths(IniUtils& ini) {
    std::string value;
    if (!readText(ini, "data_conn_string", value)) return false;
    svcConnString = homePath + value;
    if (!readText(ini, "cache_file", value)) return false;
    cacheFilePath = homePath + value;
    if (cacheFilePath == svcConnString) {
        ERR_MSG("Bad configuration, cache_file is equal to data_conn_string");
        return false;
    }
    return true;
}

bool KatdConf::readCacheSettings(IniUtils& ini) {
    std::string text;
    std::int32_t number = 0;
    if (!readNumber(ini, "max_cache_entries", 0, maxCacheEntriesLimit, text, number)) return false;
    maxCacheEntries = text;
    if (!readNumber(ini, "save_cache_interval", 1, saveCacheIntervalLimit, text, number)) return false;
    saveCacheInterval = static_cast<std::uint32_t>(number) * secondsPerHour;
    return true;
}

bool KatdConf::readSaveCacheTime(IniUtils& ini) {
    std::string value;
    if (!ConfReader::readValue(ini, ConfReader::katdSection, "save_cache_time", value)) {
        INFO_MSG("fail to read save_cache_time from config file");
        return true;
    }
    if (value.size() != 5 || value[2] != ':') {
        ERR_MSG("save_cache_time [%s] is bad value", value.c_str());
        return false;
    }
    const std::string hour = value.substr(0, 2);
    const std::string minute = value.substr(3);
    if (!Utils::isDigit(hour.c_str()) || !Utils::isDigit(minute.c_str())) {
        ERR_MSG("save_cache_time [%s:%s]is bad value", hour.c_str(), minute.c_str());
        return false;
    }
    const std::int32_t minuteNumber = Utils::toInt32(minute.c_str());
    if (minuteNumber > 59) {
        ERR_MSG("save_cache_time [%s] is bad minute", minute.c_str());
        return false;
    }
    saveCacheMinute = minuteNumber;
    if (saveCacheInterval < secondsPerDay) return true;  // saved at that minute of every hour
    const std::int32_t hourNumber = Utils::toInt32(hour.c_str());
    if (hourNumber > 23) {
        ERR_MSG("save_cache_time [%s] is bad hour", hour.c_str());
        return false;
    }
    saveCacheHour = hourNumber;
    return true;
}

bool KatdConf::readQuerySettings(IniUtils& ini) {
    std::string text;
    std::int32_t number = 0;
    if (!readNumber(ini, "conn_pool_size", 1, noUpperLimit, text, number)) return false;
    connPoolSize = text;
    if (!readNumber(ini, "query_retry_times", 0, noUpperLimit, text, number)) return false;
    queryRetryTimes.store(static_cast<std::uint32_t>(number), std::memory_order_relaxed);
    if (!readNumber(ini, "ctengine_query_timeout", 0, noUpperLimit, text, number)) return false;
    ctengineQueryTimeout = number;
    if (!readNumber(ini, "query_retry_interval", 1, noUpperLimit, text, number)) return false;
    queryRetryInterval.store(static_cast<std::uint32_t>(number), std::memory_order_relaxed);
    if (!readText(ini, "server_address", text)) return false;
    serverAddress = text;
    return true;
}

void KatdConf::readListPaths(IniUtils& ini) {
    std::string value;
    if (ConfReader::readValue(ini, ConfReader::katdSection, "urls_list_path", value)) {
        urlsListPath = homePath + value;
    } else {
        DBG_MSG("fail to read urls_list_path from config file");
    }
    if (ConfReader::readValue(ini, ConfReader::katdSection, "domains_list_path", value)) {
        domainsListPath = homePath + value;
    } else {
        DBG_MSG("fail to read domains_list_path from config file");
    }
}

void KatdConf::getQueryTimeout(unsigned* retryTimes, unsigned* retryInterval) const {
    *retryTimes = queryRetryTimes.load(std::memory_order_relaxed);
    *retryInterval = queryRetryInterval.load(std::memory_order_relaxed);
}

void KatdConf::setQueryTimeout(unsigned retryTimes, unsigned retryInterval) {
    QOR_SPACE::Monitor monitor(lock);
    if (queryRetryInterval.load(std::memory_order_relaxed) == 0) return;
    queryRetryTimes.store(retryTimes, std::memory_order_relaxed);
    queryRetryInterval.store(retryInterval, std::memory_order_relaxed);
}

}  // namespace KATD_SPACE
