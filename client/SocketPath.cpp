#include "SocketPath.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "katclient.h"

namespace katc {

namespace {

constexpr char serviceSocket[] = "/run/katd/katd.sock";

}  // namespace

bool findSocket(std::string* path, std::string* problem) {
    const char* const variable = std::getenv("KATD_DIR");
    if (variable == nullptr || *variable == '\0') {
        *path = serviceSocket;
        return true;
    }
    const std::string home = KATD_SPACE::ConfReader::homePathOf(variable);
    const std::string settingsPath = home + KATD_SPACE::ConfReader::settingsFile;
    KATD_SPACE::IniUtils settings(settingsPath.c_str(), "r");
    char value[KATD_SPACE::IniUtils::valueLimit + 1] = "";
    if (!settings.opened) {
        const int error = errno;
        *problem = "cannot open " + settingsPath + " (" + std::strerror(error) + "): " +
                   (error == EACCES ? "use an account of the group that may ask"
                                    : "set KATD_DIR to katd's home directory") +
                   ", or name katd's socket with -s";
        return false;
    }
    if (settings.QueryConfValue(KATD_SPACE::ConfReader::katdSection, "data_conn_string", value,
                                KATD_SPACE::IniUtils::valueLimit) != 0 ||
        value[0] == '\0') {
        *problem = settingsPath + " has no data_conn_string in its section katd: name katd's socket with -s";
        return false;
    }
    *path = home + value;
    return true;
}

std::string openProblem(int status, const std::string& path) {
    if (status == KATCLIENT_NO_MEMORY) return katclient_status_text(status);
    return "the path " + path + " is too long for a socket: name katd's socket with -s";
}

}  // namespace katc
