// The settings of katd-http: conf/katd-http.ini below katd's home.
#ifndef GATEWAY_SETTINGS_H
#define GATEWAY_SETTINGS_H

#include <stdexcept>
#include <string>
#include <vector>

#include "HttpServer.h"
#include "Policy.h"
#include "tools/CategoryNames.h"

namespace gateway {

// Read once.
struct Settings {
    std::vector<std::string> listen;  // addresses of Listener
    std::vector<std::string>
        adminListen;           // of the administrator's page, metrics and health; empty: those of `listen`
    std::string socket;        // katd's
    std::string katdLog;       // katd's log; empty: katd's own counters are not shown
    unsigned connections = 4;  // to katd
    unsigned answerMs = 5000;  // limit of one answer
    HttpLimits limits;
};

// Read again on SIGHUP.
struct Rules {
    Policies policies;
    tools::CategoryNames names;
};

// An error in the settings: a sentence without its full stop.
class SettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Both read `path`; paths in the file are relative to `home`, which ends with "/". They throw SettingsError
// for every error, including unknown keys and sections.
Settings readSettings(const std::string& path, const std::string& home);
Rules readRules(const std::string& path, const std::string& home);

}  // namespace gateway

#endif
