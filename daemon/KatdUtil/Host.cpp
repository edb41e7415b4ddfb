#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "KatdUtil/Utils.h"
#include "StringHelper.h"
#include "io/File.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdUtil";

// Host name of the classification service if the caller gives none.
constexpr const char* defaultHost = "classify.katd.example";

}  // namespace

bool Utils::checkDNS(const char* host) {
    std::string name = defaultHost;
    if (host != nullptr) {
        name = host;
        QOR_SPACE::StringHelper::replace(name, "%d", "1");
    }
    if (gethostbyname(name.c_str()) == nullptr) {
        ERR_MSG("Check DNS with [%s] failed", name.c_str());
        return false;
    }
    DBG_MSG("Check DNS with [%s] succ", name.c_str());
    return true;
}

void Utils::makeParentDir(const char* path) {
    const char* lastSlash = std::strrchr(path, '/');
    if (lastSlash == nullptr) return;
    try {
        std::string folder(path, lastSlash);
        // mkdirs() takes "a/" and "a" for two directories and fails to create the second.
        const auto bothSlashes = [](char left, char right) { return left == '/' && right == '/'; };
        folder.erase(std::unique(folder.begin(), folder.end(), bothSlashes), folder.end());
        QOR_SPACE::File(folder).mkdirs();
    } catch (const std::bad_alloc&) {
        ERR_MSG("fail to call strdup in [%s]", "makeParentDir");
    }
}

void Utils::sleepn(int seconds) {
    while (seconds > 0) {
        const int left = static_cast<int>(sleep(static_cast<unsigned>(seconds)));
        DBG_MSG("Awake from sleeping, sleep time [%d], left time [%d]", seconds, left);
        seconds = left;
    }
}

std::int64_t Utils::nowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool Utils::checkTime(int hour, int minute) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr || local.tm_min != minute) return false;
    return hour == -1 || local.tm_hour == hour;
}

}  // namespace KATD_SPACE
