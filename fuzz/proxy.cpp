// Settings files of the HTTP proxy.
// Input: the file. A valid one is loaded after it, which takes effect only if the first one set no proxy.
#include "IniText.h"
#include "KatdConf/HttpProxyConf.h"

using namespace katd_fuzz;

namespace {

struct Proxy {
    bool valid = false;
    std::string address, port = "80", auth = "NoAuth", user, password;

    void load(const std::string& file) {
        const auto value = [&file](const char* key) {
            const auto found = valueOf(file, "Connectivity", key);
            return found ? std::optional<std::string>(found->substr(0, 256)) : found;
        };
        if (valid || value("ProxyAccess") != "1") return;
        if (value("ProxyServerAddress").value_or("").empty()) return;
        address = *value("ProxyServerAddress");
        const std::string newPort = value("ProxyPort").value_or("");
        if (!newPort.empty() && newPort.find_first_not_of("0123456789") == std::string::npos) port = newPort;
        const std::string newAuth = value("ProxyAuth").value_or("");
        if (newAuth == "NoAuth" || newAuth == "Basic") auth = newAuth;
        valid = auth == "NoAuth";
        if (valid || value("ProxyUserName").value_or("").empty()) return;
        user = *value("ProxyUserName");
        valid = true;
        const auto encoded = value("ProxyEncodedPassword");
        password = encoded ? fromHex(*encoded) : value("ProxyPassword").value_or("");
    }

    static std::string fromHex(const std::string& digits) {
        if (digits.size() % 2 != 0) return "";
        if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return "";
        std::string text;
        for (std::size_t i = 0; i < digits.size(); i += 2)
            text += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
        return upToZero(text);
    }
};

constexpr const char* goodFile =
    "[Connectivity]\nProxyAccess=1\nProxyServerAddress=proxy\nProxyUserName=me\nProxyPassword=secret\n";

void requireLoaded(KATD_SPACE::HttpProxyConf& conf, Proxy& proxy, const std::string& text) {
    static InputFile file;
    file.write(text);
    conf.loadConfig(file.path());
    proxy.load(text);
    REQUIRE(conf.isValid() == proxy.valid);
    REQUIRE(conf.getProxyServerAddress() == proxy.address);
    REQUIRE(conf.getProxyPort() == proxy.port);
    REQUIRE(conf.getProxyAuth() == proxy.auth);
    REQUIRE(conf.getProxyUserName() == proxy.user);
    REQUIRE(conf.getProxyPassword() == proxy.password);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    formatMessages();
    KATD_SPACE::HttpProxyConf conf;
    Proxy proxy;
    requireLoaded(conf, proxy, bytesOf(data, size));
    requireLoaded(conf, proxy, goodFile);
    REQUIRE(conf.isValid());
    return 0;
}
