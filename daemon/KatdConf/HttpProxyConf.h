#ifndef KATD_HTTPPROXYCONF_H
#define KATD_HTTPPROXYCONF_H

#include <string>

#include "Mutex.h"

namespace KATD_SPACE {

class IniUtils;

// The HTTP proxy between the engine and its service, read from section "Connectivity" of a separate file.
// Errors do not stop the daemon: without access, address or a required user name isValid() is false and no
// proxy is used; other bad values are replaced by their defaults. The main thread loads it at start-up;
// afterwards any thread may read it.
class HttpProxyConf {
public:
    HttpProxyConf() = default;
    ~HttpProxyConf() = default;
    HttpProxyConf(const HttpProxyConf&) = delete;
    HttpProxyConf& operator=(const HttpProxyConf&) = delete;

    // Reads the file, unless isValid(). Errors are reported by messages. May throw std::bad_alloc.
    void loadConfig(const char* path);

    bool isValid() const { return valid; }
    // Never null; valid until the next load.
    const char* getProxyServerAddress() const { return proxyServerAddress.c_str(); }
    const char* getProxyPort() const { return proxyPort.c_str(); }
    const char* getProxyAuth() const { return proxyAuth.c_str(); }  // "NoAuth" or "Basic"
    const char* getProxyUserName() const { return proxyUserName.c_str(); }
    const char* getProxyPassword() const { return proxyPassword.c_str(); }  // plain text

private:
    bool readAccess(IniUtils& ini, const char* path) const;
    bool readAddress(IniUtils& ini, const char* path);
    void readAuth(IniUtils& ini, const char* path);
    void readPassword(IniUtils& ini, const char* path);

    QOR_SPACE::Mutex lock;             // held by loadConfig
    bool valid = false;                // use the proxy
    std::string proxyServerAddress;    // host name or IP address
    std::string proxyPort = "80";      // decimal digits
    std::string proxyAuth = "NoAuth";  // "NoAuth" or "Basic"
    std::string proxyUserName;         // for "Basic"
    std::string proxyPassword;         // for "Basic", plain text, may be empty
};

}  // namespace KATD_SPACE

#endif
