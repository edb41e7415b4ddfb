// Settings of the catalogue engine.
#ifndef KATD_ENGINE_SETTINGS_H
#define KATD_ENGINE_SETTINGS_H

#include <string>

namespace engine {

struct Settings {
    std::string path;     // of the file of settings
    std::string catalog;  // path of the catalogue file
    // The shared store's, as they are in the file; empty if missing. StoreSettings.h checks them.
    std::string shared;
    std::string sharedPasswordFile;
    std::string sharedWait;
    std::string sharedLifetime;

    // Reads the file that KATD_CATALOG_INI names or, by default, conf/catalog.ini in KATD_DIR. If the latter
    // does not exist, all settings have their defaults. False with a sentence in *failure on other errors.
    static bool load(Settings* settings, std::string* failure);
};

}  // namespace engine

#endif
