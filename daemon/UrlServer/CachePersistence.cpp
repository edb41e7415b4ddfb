// The engine's cache of learnt categories: loaded at start-up, saved periodically and on request.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "KatdUtil/DetachedThread.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/Engine.h"
#include "UrlServer/Globals.h"
#include "UrlServer/UrlServer.h"
#include "io/File.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

// Writes the file to the disk. Otherwise a power failure after the rename could leave an empty cache in place
// of a complete one. A missing file is left to the rename to report.
bool syncFile(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT;
    const bool synced = fsync(fd) == 0;
    close(fd);
    return synced;
}

void sleepSeconds(unsigned seconds) {
    while (seconds > static_cast<unsigned>(INT_MAX)) {
        Utils::sleepn(INT_MAX);
        seconds -= static_cast<unsigned>(INT_MAX);
    }
    Utils::sleepn(static_cast<int>(seconds));
}

// A poll at the start of each minute misses none.
void sleepUntilNextMinute() {
    Utils::sleepn(static_cast<int>(60 - std::time(nullptr) % 60));
}

void saveReported(const char* path) {
    bool saved = false;
    try {
        saved = UrlServer::saveCache(path);
    } catch (const std::bad_alloc&) {
        // Reported below as a failed save; the next one may find memory.
    }
    if (saved) {
        INFO_MSG("Save cache to [%s] OK.", path);
    } else {
        INFO_MSG("Save cache to [%s] failed.", path);
    }
}

}  // namespace

void UrlServer::loadCache() {
    if (!valid || sdkMain == nullptr) return;
    const char* path = ops.conf.getCacheFilePath();
    if (path == nullptr || *path == '\0') {
        ERR_MSG("In %s, cache file is not specified", "loadCache");
        return;
    }
    const QOR_SPACE::File file(path);
    if (!file.exists()) {
        DBG_MSG("cache file [%s] does not exist", path);
        return;
    }
    if (!file.isFile()) {
        DBG_MSG("cache file [%s] does not a file", path);
        return;
    }
    const std::time_t start = std::time(nullptr);
    INFO_MSG("load cache file [%s]", path);
    if (Engine::loadCache(sdkMain, path)) {
        INFO_MSG("Load cache from [%s] OK.", path);
    } else {
        const EngineFailure failure;
        INFO_MSG("ASAPSDK::CSDKMain_LoadWebSecCache Failed : Type=%d, Code=%d, Desc=%s\n", failure.type,
                 failure.code, failure.description);
    }
    INFO_MSG("[%d] seconds spent to load cache", static_cast<int>(std::time(nullptr) - start));
}

bool UrlServer::saveCache(const char* path) {
    if (Utils::toInt32(ops.conf.getMaxCacheEntries()) == 0) {
        INFO_MSG("Max cache entries is zero");
        return false;
    }
    if (!urlSvr->handledRequest.load(std::memory_order_relaxed)) {
        INFO_MSG("Katd has not handled any request");
        return false;
    }
    QOR_SPACE::Monitor monitor(urlSvr->cacheMutex);
    const QOR_SPACE::File target(path);
    if (target.exists() && target.isDirectory()) {
        INFO_MSG("cache path [%s] is a directory", path);
        return false;
    }
    const std::string temporary = std::string(path) + ".tmp";
    std::remove(temporary.c_str());  // also if it is a link or a pipe
    INFO_MSG("save cache ...");
    {
        EngineUse engine(urlSvr->sdkMain, urlSvr->engineUses);
        if (engine.handle() == nullptr) return false;  // the server is being torn down
        if (!Engine::saveCache(engine.handle(), temporary.c_str())) {
            const EngineFailure failure;
            DBG_MSG("ASAPSDK::CSDKMain_SaveWebSecCache Failed : Type=%d, Code=%d, Desc=%s\n", failure.type,
                    failure.code, failure.description);
            return false;
        }
    }
    INFO_MSG("save cache to [%s] successfully.\n", temporary.c_str());
    if (!syncFile(temporary.c_str()) || std::rename(temporary.c_str(), path) != 0) {
        ERR_MSG("fail to rename from [%s], to[%s]", temporary.c_str(), path);
        return false;
    }
    return true;
}

void UrlServer::startCacheMonitor() {
    if (!valid || sdkMain == nullptr) return;
    const int error = startDetachedThread(cacheMonitor, nullptr);
    if (error != 0) {
        ERR_MSG("Error: Fail to create url server instance thread, [%d][%s].", error, std::strerror(errno));
    }
}

void* UrlServer::cacheMonitor(void*) {
    const unsigned interval = ops.conf.getSaveCacheInterval();
    if (interval == 0) return nullptr;
    const char* path = ops.conf.getCacheFilePath();
    if (path == nullptr || *path == '\0') {
        ERR_MSG("In %s, cache file is not specified", "cacheMonitor");
        return nullptr;
    }
    Utils::makeParentDir(path);
    EngineAttachment attachment;  // until the process ends
    const int hour = ops.conf.getSaveCacheHour();
    const int minute = ops.conf.getSaveCacheMinute();
    bool savedOnce = false;
    for (;;) {
        if (savedOnce || minute == -1) {
            sleepSeconds(interval);
        } else {
            sleepUntilNextMinute();
            if (!Utils::checkTime(hour, minute)) continue;
        }
        saveReported(path);
        savedOnce = true;
    }
}

}  // namespace KATD_SPACE
