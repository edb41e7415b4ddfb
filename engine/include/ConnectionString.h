// The connection string of CSDKMain_Create, as the engines here read it.
#ifndef KATD_ENGINE_CONNECTIONSTRING_H
#define KATD_ENGINE_CONNECTIONSTRING_H

#include <charconv>
#include <cstdint>
#include <string_view>

namespace engine {

// The number of the first field "NAME=NUMBER" between semicolons; `otherwise` if there is none.
inline std::uint32_t connectionNumber(std::string_view connection, std::string_view name,
                                      std::uint32_t otherwise) {
    for (;;) {
        const auto end = connection.find(';');
        const std::string_view field = connection.substr(0, end);
        if (field.substr(0, name.size()) == name && field.substr(name.size(), 1) == "=") {
            const std::string_view text = field.substr(name.size() + 1);
            std::uint32_t number = 0;
            const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
            if (result.ec == std::errc() && result.ptr == text.data() + text.size()) return number;
        }
        if (end == connection.npos) return otherwise;
        connection.remove_prefix(end + 1);
    }
}

}  // namespace engine

#endif
