#ifndef KATD_LOGCONF_H
#define KATD_LOGCONF_H

#include <cstdint>
#include <string>

namespace KATD_SPACE {

// Settings of the debug log, from section "katd" of the settings file. All are optional: what is missing or
// unusable silently keeps its default, so that the daemon can always log. For one thread at start-up; may
// throw std::bad_alloc.
class LogConf {
public:
    // Sets the defaults below homeDir (null or empty: below the working directory).
    explicit LogConf(const char* homeDir);
    ~LogConf() = default;

    // Reads the settings file. False, reported, only when it cannot be opened; all values are as before then.
    bool load();

    int getLogLevel() const { return logLevel; }                        // message level 0 to 3
    int getSizeLimit() const { return sizeLimit; }                      // KiB at which the log rotates
    int getRotationNumber() const { return rotationNumber; }            // rotated files that remain
    const char* getLogFilePath() const { return logFilePath.c_str(); }  // valid until the next load

private:
    std::string homePath;             // home directory, ending in "/", or empty: the working directory
    std::string configFilePath;       // the settings file
    std::string logFilePath;          // the debug log
    std::int32_t logLevel = 1;        // 0 info, 1 error, 2 warning, 3 debug
    std::int32_t sizeLimit = 1024;    // KiB, at least 1
    std::int32_t rotationNumber = 4;  // files, at least 1
};

}  // namespace KATD_SPACE

#endif
