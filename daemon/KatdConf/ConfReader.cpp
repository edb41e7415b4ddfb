#include "KatdConf/ConfReader.h"

#include "KatdUtil/IniUtils.h"

namespace KATD_SPACE {

bool ConfReader::findValue(IniUtils& ini, const char* section, const char* key, std::string& value) {
    char text[IniUtils::valueLimit + 1] = "";
    if (ini.QueryConfValue(section, key, text, IniUtils::valueLimit) != 0) return false;
    value = text;
    return true;
}

bool ConfReader::readValue(IniUtils& ini, const char* section, const char* key, std::string& value) {
    return findValue(ini, section, key, value) && !value.empty();
}

std::string ConfReader::homePathOf(const char* homeDir) {
    std::string path = homeDir == nullptr ? "" : homeDir;
    if (!path.empty() && path.back() != '/') path += '/';
    return path;
}

}  // namespace KATD_SPACE
