// Settings of the shared store.
#ifndef KATD_ENGINE_STORESETTINGS_H
#define KATD_ENGINE_STORESETTINGS_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "Settings.h"
#include "catalog/SharedAddress.h"

namespace engine {

struct StoreSettings {
    catalog::SharedAddress address;
    std::chrono::milliseconds wait{50};
    std::chrono::seconds lifetime{3600};  // of what is remembered
    std::uint32_t connections = 0;
    std::uint32_t records = 0;  // to remember

    // Reads them from the engine's settings, of which `shared` is not empty, and from its connection string.
    // False with a sentence in *failure if one is bad.
    bool read(const Settings& settings, std::string_view connection, std::string* failure);
};

}  // namespace engine

#endif
