#include "KatdConf/LogConf.h"

#include <strings.h>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdConf";

constexpr const char* defaultLogFile = "log/katd.log";  // below the home path

constexpr const char* levelWords[] = {"info", "error", "warning", "debug"};  // by message level

void readPositive(IniUtils& ini, const char* key, std::int32_t& number) {
    std::string value;
    if (!ConfReader::readValue(ini, ConfReader::katdSection, key, value) || !Utils::isDigit(value.c_str()))
        return;
    const std::int32_t read = Utils::toInt32(value.c_str());
    if (read > 0) number = read;
}

}  // namespace

LogConf::LogConf(const char* homeDir)
    : homePath(ConfReader::homePathOf(homeDir)), configFilePath(homePath + ConfReader::settingsFile) {
    DBG_MSG("Katd config file [%s]", configFilePath.c_str());
    logFilePath = homePath + defaultLogFile;
}

bool LogConf::load() {
    DBG_MSG("config_file [%s]", configFilePath.c_str());
    IniUtils ini(configFilePath.c_str());
    if (!ini.opened) {
        ERR_MSG("bad config path [%s]", configFilePath.c_str());
        return false;
    }
    readPositive(ini, "rotation_number", rotationNumber);
    readPositive(ini, "size_limit", sizeLimit);
    std::string value;
    const bool hasPath = ConfReader::readValue(ini, ConfReader::katdSection, "log_file_path", value);
    logFilePath = homePath + (hasPath ? value : defaultLogFile);
    if (ConfReader::readValue(ini, ConfReader::katdSection, "log_level", value)) {
        std::int32_t level = 0;
        for (const char* word : levelWords) {
            if (strcasecmp(value.c_str(), word) == 0) logLevel = level;
            ++level;
        }
    }
    return true;
}

}  // namespace KATD_SPACE
