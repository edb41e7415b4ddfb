#include "StoreSettings.h"

#include <algorithm>
#include <charconv>
#include <fstream>

#include "ConnectionString.h"

namespace engine {

namespace {

constexpr std::size_t longestAddress = 200;  // the reader of the file cuts long lines
constexpr std::uint32_t mostConnections = 64;

// The number that the text names; `otherwise` if the text is empty, and -1 if it is not a number from `least`
// to `most`.
long readNumber(const std::string& text, long least, long most, long otherwise) {
    if (text.empty()) return otherwise;
    long number = -1;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return whole && number >= least && number <= most ? number : -1;
}

}  // namespace

bool StoreSettings::read(const Settings& settings, std::string_view connection, std::string* failure) {
    const auto fail = [&](const std::string& what) {
        *failure = settings.path + ": " + what;
        return false;
    };
    if (settings.shared.size() > longestAddress) return fail("shared is longer than 200 characters");
    if (const char* const reason = readSharedAddress(settings.shared, &address))
        return fail(std::string("shared is not the address of a store: ") + reason);
    if (!settings.sharedPasswordFile.empty()) {
        std::ifstream file(settings.sharedPasswordFile);
        std::getline(file, address.password);
        if (!address.password.empty() && address.password.back() == '\r') address.password.pop_back();
        if (!file || address.password.empty())
            return fail("shared_password_file names a file that cannot be read or is empty");
    }
    if (!address.user.empty() && address.password.empty())
        return fail("shared has a user without a password");
    wait = std::chrono::milliseconds(readNumber(settings.sharedWait, 0, 5000, 50));
    if (wait.count() < 0) return fail("shared_wait is not a number from 0 to 5000");
    lifetime = std::chrono::seconds(readNumber(settings.sharedLifetime, 1, 30L * 86400, 3600));
    if (lifetime.count() < 0) return fail("shared_ttl is not a number from 1 to 2592000");
    connections = std::clamp(connectionNumber(connection, "HttpConnPoolSize", 4), 1U, mostConnections);
    records = connectionNumber(connection, "WebSecCacheMaxEntries", 0);
    return true;
}

}  // namespace engine
