#ifndef KATD_CONFREADER_H
#define KATD_CONFREADER_H

#include <string>

namespace KATD_SPACE {

class IniUtils;

// What the settings classes share. May throw std::bad_alloc.
class ConfReader {
public:
    ConfReader() = delete;

    // True when the key exists; value is its text then, possibly empty, and unchanged otherwise.
    static bool findValue(IniUtils& ini, const char* section, const char* key, std::string& value);
    // True when the key exists with a text that is not empty; value is that text then and unspecified
    // otherwise.
    static bool readValue(IniUtils& ini, const char* section, const char* key, std::string& value);
    // homeDir with one "/" at its end; empty for null and empty.
    static std::string homePathOf(const char* homeDir);

    static constexpr const char* katdSection = "katd";
    static constexpr const char* settingsFile = "conf/katd.ini";  // below the home path
};

}  // namespace KATD_SPACE

#endif
