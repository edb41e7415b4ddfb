// Settings of the catalogue engine.
#ifndef KATD_ENGINE_SETTINGS_H
#define KATD_ENGINE_SETTINGS_H

#include <string>

namespace engine {

struct Settings {
    std::string catalog;  // path of the catalogue file

    // Reads the file that KATD_CATALOG_INI names, else conf/catalog.ini below the folder that KATD_DIR names.
    // Without the latter file everything has its default. False with a sentence in `failure` otherwise.
    static bool load(Settings* settings, std::string* failure);
};

}  // namespace engine

#endif
