#ifndef KATD_LOGCONF_H
#define KATD_LOGCONF_H

#include <cstdint>
#include <string>

namespace KATD_SPACE {

// Settings of the debug log, read from section "katd" of the settings file. Missing and bad values silently
// keep their defaults, so that the daemon can always log. Not thread-safe. May throw std::bad_alloc.
class LogConf {
public:
    // Sets the defaults below homeDir (null or "": the working directory).
    explicit LogConf(const char* homeDir);
    ~LogConf() = default;

    // Reads the settings file. Returns false, and reports it, if the file cannot be opened; no value is
    // changed then.
    bool load();

    int getLogLevel() const { return logLevel; }                        // message level 0 to 3
    int getSizeLimit() const { return sizeLimit; }                      // KiB at which the log is rotated
    int getRotationNumber() const { return rotationNumber; }            // rotated files to keep
    const char* getLogFilePath() const { return logFilePath.c_str(); }  // valid until the next load

private:
    std::string homePath;             // home directory with a "/" at its end, or "": the working directory
    std::string configFilePath;       // the settings file
    std::string logFilePath;          // the debug log
    std::int32_t logLevel = 1;        // 0 info, 1 error, 2 warning, 3 debug
    std::int32_t sizeLimit = 1024;    // KiB, at least 1
    std::int32_t rotationNumber = 4;  // files, at least 1
};

}  // namespace KATD_SPACE

#endif
