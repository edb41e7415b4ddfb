// Settings of the catalogue engine.
#ifndef KATD_ENGINE_SETTINGS_H
#define KATD_ENGINE_SETTINGS_H

#include <string>

namespace engine {

struct Settings {
    std::string catalog;  // path of the catalogue file

    // Reads the file that KATD_CATALOG_INI names or, by default, conf/catalog.ini in KATD_DIR. If the latter
    // does not exist, all settings have their defaults. False with a sentence in *failure on other errors.
    static bool load(Settings* settings, std::string* failure);
};

}  // namespace engine

#endif
