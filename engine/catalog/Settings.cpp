#include "Settings.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "KatdUtil/IniUtils.h"

namespace engine {

namespace {

constexpr const char* section = "catalog";
constexpr const char* defaultCatalog = "data/catalog.mdb";

std::string absolute(const std::string& path, const char* folder) {
    return path[0] == '/' || folder == nullptr ? path : std::string(folder) + "/" + path;
}

}  // namespace

bool Settings::load(Settings* settings, std::string* failure) {
    const char* const folder = std::getenv("KATD_DIR");
    const char* const named = std::getenv("KATD_CATALOG_INI");
    const std::string path = named != nullptr ? named : absolute("conf/catalog.ini", folder);
    std::string catalog = defaultCatalog;
    if (named != nullptr || access(path.c_str(), F_OK) == 0) {
        KATD_SPACE::IniUtils file(path.c_str(), "r");
        if (!file.opened) {
            *failure =
                "cannot read the settings of the catalogue engine, " + path + ": " + std::strerror(errno);
            return false;
        }
        char value[KATD_SPACE::IniUtils::valueLimit + 1] = "";
        if (file.QueryConfValue(section, "catalog_path", value, KATD_SPACE::IniUtils::valueLimit) == 0 &&
            value[0] != '\0')
            catalog = value;
    }
    settings->catalog = absolute(catalog, folder);
    return true;
}

}  // namespace engine
