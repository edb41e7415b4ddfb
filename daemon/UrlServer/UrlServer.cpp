#include "UrlServer/UrlServer.h"

#include <ctime>
#include <string>

#include "KatdConf/HttpProxyConf.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/Engine.h"
#include "UrlServer/Globals.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

// The engine's settings, each field opened by a ";" but the first.
std::string connectionString() {
    const KatdConf& conf = ops.conf;
    std::string text;
    text.append("ServerAddress=").append(conf.getServerAddress());
    text.append(";HttpConnPoolSize=").append(conf.getConnPoolSize());
    text.append(";WebSecCacheMaxEntries=").append(conf.getMaxCacheEntries());
    if (!proxyConf.isValid()) return text;
    const std::string authentication = proxyConf.getProxyAuth();
    text.append(";ProxyAccess=1");
    text.append(";ProxyServerAddress=").append(proxyConf.getProxyServerAddress());
    text.append(";ProxyPort=").append(proxyConf.getProxyPort());
    text.append(";ProxyAuth=").append(authentication);
    if (authentication == "NoAuth") return text;
    text.append(";ProxyUserName=").append(proxyConf.getProxyUserName());
    const std::string password = proxyConf.getProxyPassword();
    if (!password.empty()) text.append(";ProxyPassword=").append(password);
    return text;
}

}  // namespace

const char UrlServer::TEMP_DIR[] = "/tmp/katd_cteng/";

UrlServer::UrlServer() : valid(false), sdkMain(nullptr), allUrls(0), matchedUrls(0), handledRequest(false) {
    const std::string connection = connectionString();
    INFO_MSG("conn str for ctengine [%s]", connection.c_str());
    sdkMain = Engine::open(connection.c_str());
    if (sdkMain == nullptr) {
        const EngineFailure failure;
        ERR_MSG("ASAPSDK::CSDKMain_create Failed : Type=%d, Code=%d, Desc=%s", failure.type, failure.code,
                failure.description);
        return;
    }
    checkNetStatus(sdkMain);
    valid = true;
    loadCache();
}

UrlServer::~UrlServer() {
    closeEngine();
}

void UrlServer::closeEngine() {
    void* handle = sdkMain.exchange(nullptr);
    if (handle == nullptr) return;
    constexpr int waits = 100;
    for (int waited = 0; engineUses.load() != 0; ++waited) {
        if (waited == waits) return;
        const timespec pause{0, 10 * 1000000L};
        nanosleep(&pause, nullptr);
    }
    Engine::close(handle);
}

void UrlServer::getUrlNumber(unsigned* all, unsigned* matched) {
    if (all == nullptr || matched == nullptr) return;
    QOR_SPACE::Monitor monitor(numberMutex);
    *all = allUrls;
    *matched = matchedUrls;
}

void UrlServer::addUrlNumber(bool matched) {
    QOR_SPACE::Monitor monitor(numberMutex);
    ++allUrls;
    if (matched) ++matchedUrls;
}

}  // namespace KATD_SPACE
