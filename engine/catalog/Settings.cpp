#include "Settings.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

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
    settings->path = named != nullptr ? named : absolute("conf/catalog.ini", folder);
    settings->catalog = defaultCatalog;
    if (named != nullptr || access(settings->path.c_str(), F_OK) == 0) {
        KATD_SPACE::IniUtils file(settings->path.c_str(), "r");
        if (!file.opened) {
            *failure = "cannot read the settings of the catalogue engine, " + settings->path + ": " +
                       std::strerror(errno);
            return false;
        }
        const std::pair<const char*, std::string*> keys[] = {
            {"catalog_path", &settings->catalog},
            {"shared", &settings->shared},
            {"shared_password_file", &settings->sharedPasswordFile},
            {"shared_wait", &settings->sharedWait},
            {"shared_ttl", &settings->sharedLifetime},
        };
        for (const auto& [key, setting] : keys) {
            char value[KATD_SPACE::IniUtils::valueLimit + 1] = "";
            file.QueryConfValue(section, key, value, KATD_SPACE::IniUtils::valueLimit);
            if (value[0] != '\0') *setting = value;
        }
    }
    settings->catalog = absolute(settings->catalog, folder);
    if (!settings->sharedPasswordFile.empty())
        settings->sharedPasswordFile = absolute(settings->sharedPasswordFile, folder);
    return true;
}

}  // namespace engine
