#include "UrlServer/ControlRequests.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "KatdUtil/Utils.h"
#include "UrlServer/Globals.h"
#include "UrlServer/Protocol.h"
#include "UrlServer/UrlServer.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

std::uint32_t operandAt(const char* position) {
    std::uint32_t value;
    std::memcpy(&value, position, sizeof(value));
    return value;
}

// Whether body begins with the keyword.
template <unsigned N>
bool isRequest(const char* body, const char (&keyword)[N]) {
    return std::strncmp(body, keyword, N - 1) == 0;
}

// The same, and all operands have been received.
template <unsigned N>
bool isRequest(const char* body, const char (&keyword)[N], unsigned length, unsigned operands) {
    return isRequest(body, keyword) && length >= N - 1 + operands * sizeof(std::uint32_t);
}

void setLogLevel(std::uint32_t level) {
    if (level > 3) {
        ERR_MSG("bad loglevel in ctrl request, [%d]", static_cast<std::int32_t>(level));
        return;
    }
    DBG_MSG("set log_level [%d]", static_cast<std::int32_t>(level));
    ops.logLevel.store(static_cast<std::int32_t>(level), std::memory_order_relaxed);
}

void setRetries(std::uint32_t times, std::uint32_t interval) {
    DBG_MSG("set timeout [%d:%d]", static_cast<std::int32_t>(times), static_cast<std::int32_t>(interval));
    ops.conf.setQueryTimeout(times, interval);
}

void saveCacheNow() {
    const char* path = ops.conf.getCacheFilePath();
    if (path == nullptr || *path == '\0') {
        ERR_MSG("In %s, cache file is not specified", "handleCtrlRequest");
        return;
    }
    Utils::makeParentDir(path);
    try {
        UrlServer::saveCache(path);
    } catch (const std::bad_alloc&) {
        // A failed save; the request gets its reply.
    }
}

void logStatistics() {
    unsigned all = 0;
    unsigned matched = 0;
    urlSvr->getUrlNumber(&all, &matched);
    if (all == 0) {
        INFO_MSG("All urls [%d], matched from cache [%d]", 0, static_cast<int>(matched));
        return;
    }
    const std::uint64_t percentage = static_cast<std::uint64_t>(matched) * 100 / all;
    INFO_MSG("All urls [%d], matched from cache [%d], percentage [%%%d]", static_cast<int>(all),
             static_cast<int>(matched), static_cast<int>(percentage));
}

}  // namespace

void carryOutControlRequest(const char* body, unsigned length) {
    if (urlSvr == nullptr) return;
    QOR_SPACE::Monitor monitor(urlSvr->ctrlMutex);
    if (isRequest(body, controlLogLevel, length, 1)) {
        setLogLevel(operandAt(body + sizeof(controlLogLevel) - 1));
    } else if (isRequest(body, controlTimeout, length, 2)) {
        const char* operands = body + sizeof(controlTimeout) - 1;
        setRetries(operandAt(operands), operandAt(operands + sizeof(std::uint32_t)));
    } else if (isRequest(body, controlSaveCache)) {
        saveCacheNow();
    } else if (isRequest(body, controlUrlsStat)) {
        logStatistics();
    } else if (isRequest(body, controlReload)) {
        urlSvr->urlManager.reloadUrlList(ops.conf.getUrlsListPath(), ops.conf.getDomainsListPath());
    } else {
        ERR_MSG("Unknown ctrl request [%s]", body);
    }
}

}  // namespace KATD_SPACE
