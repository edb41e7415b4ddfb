// katc: asks the daemon for the categories of URLs, and sends it control requests.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "Arguments.h"
#include "Connection.h"
#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "Questions.h"

namespace {

// The daemon's socket as its settings name it. False, with a sentence on standard error, when they do not.
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
        std::fprintf(
            stderr,
            "katc: cannot open %s: set KATD_DIR to katd's home directory, or name katd's socket with -s.\n",
            settingsPath.c_str());
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

katc::ExitStatus run(int argc, char** argv) {
    katc::Arguments arguments;
    katc::ExitStatus status = katc::answered;
    if (!katc::parseArguments(argc, argv, &arguments, &status)) return status;
    if (arguments.socket.empty() && !socketFromSettings(&arguments.socket)) return katc::badUsage;
    katc::Connection connection(arguments.socket);
    if (!arguments.control.empty()) return katc::sendControl(&connection, arguments.control);
    return katc::Questions(&connection, arguments.withRetry).askAll(arguments.urls);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "katc: %s: free some memory and ask again.\n", e.what());
        return katc::unanswered;
    }
}
