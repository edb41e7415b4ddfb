#ifndef KATD_HTTPPROXYCONF_H
#define KATD_HTTPPROXYCONF_H

#include <string>

#include "Mutex.h"

namespace KATD_SPACE {

class IniUtils;

// The HTTP proxy through which the engine reaches its service, from section "Connectivity" of a file of its
// own. No fault stops the daemon: without access, address or a needed user name isValid() is false and no
// proxy is used; other values fall back to their defaults. Loaded by the main thread at start-up, read
// afterwards.
class HttpProxyConf {
public:
    HttpProxyConf() = default;
    ~HttpProxyConf() = default;
    HttpProxyConf(const HttpProxyConf&) = delete;
    HttpProxyConf& operator=(const HttpProxyConf&) = delete;

    // Reads the file, unless a proxy is configured already; isValid() tells the outcome, messages the faults.
    // May throw std::bad_alloc (start-up only).
    void loadConfig(const char* path);

    bool isValid() const { return valid; }
    // Never null; valid as long as the object lives and is not loaded again.
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
    bool valid = false;                // a proxy is configured and is to be used
    std::string proxyServerAddress;    // host name or address
    std::string proxyPort = "80";      // decimal digits
    std::string proxyAuth = "NoAuth";  // "NoAuth" or "Basic"
    std::string proxyUserName;         // for "Basic"
    std::string proxyPassword;         // for "Basic", plain text, may be empty
};

}  // namespace KATD_SPACE

#endif
