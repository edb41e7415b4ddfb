#include "Settings.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"

namespace katc {

bool socketFromSettings(std::string* path) {
    const char* const variable = std::getenv("KATD_DIR");
    if (variable == nullptr || *variable == '\0') {
        std::fputs("katc: set KATD_DIR to katd's home directory, or name katd's socket with -s.\n", stderr);
        return false;
    }
    const std::string home = KATD_SPACE::ConfReader::homePathOf(variable);
    const std::string settingsPath = home + KATD_SPACE::ConfReader::settingsFile;
    KATD_SPACE::IniUtils settings(settingsPath.c_str(), "r");
    char value[KATD_SPACE::IniUtils::valueLimit + 1] = "";
    if (!settings.opened) {
        const int error = errno;
        const char* const remedy = error == EACCES ? "use an account of the group that may ask"
                                                   : "set KATD_DIR to katd's home directory";
        std::fprintf(stderr, "katc: cannot open %s (%s): %s, or name katd's socket with -s.\n",
                     settingsPath.c_str(), std::strerror(error), remedy);
        return false;
    }
    if (settings.QueryConfValue(KATD_SPACE::ConfReader::katdSection, "data_conn_string", value,
                                KATD_SPACE::IniUtils::valueLimit) != 0 ||
        value[0] == '\0') {
        std::fprintf(stderr,
                     "katc: %s has no data_conn_string in its section katd: name katd's socket with -s.\n",
                     settingsPath.c_str());
        return false;
    }
    *path = home + value;
    return true;
}

}  // namespace katc
