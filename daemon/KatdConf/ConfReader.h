#ifndef KATD_CONFREADER_H
#define KATD_CONFREADER_H

#include <string>

namespace KATD_SPACE {

class IniUtils;

// Shared by the settings classes. May throw std::bad_alloc.
class ConfReader {
public:
    ConfReader() = delete;

    // Returns true and stores the value, which may be empty, if the key exists; otherwise value is unchanged.
    static bool findValue(IniUtils& ini, const char* section, const char* key, std::string& value);
    // The same, but returns false for an empty value, too; then value is unspecified.
    static bool readValue(IniUtils& ini, const char* section, const char* key, std::string& value);
    // homeDir with a "/" at its end; "" for null and "".
    static std::string homePathOf(const char* homeDir);

    static constexpr const char* katdSection = "katd";
    static constexpr const char* settingsFile = "conf/katd.ini";  // below the home path
};

}  // namespace KATD_SPACE

#endif
