#include "UrlManager/LowPriorityLoad.h"

#include <errno.h>
#include <sys/resource.h>

#include <algorithm>

#include "KatdUtil/DetachedThread.h"
#include "Mutex.h"
#include "UrlContainer/UrlContainer.h"

namespace KATD_SPACE {

namespace {

constexpr int niceIncrement = 10;
constexpr int maxNice = 19;                // setpriority(2)
constexpr unsigned stackSize = 256 << 10;  // bytes; a ListFileReader takes 64 KiB

struct Load {
    UrlContainer& container;
    const char* urlsPath;
    const char* domainsPath;
    QOR_SPACE::Mutex mutex;  // guards the rest
    QOR_SPACE::Condition ended{mutex};
    bool hasEnded = false;
    bool isLoaded = false;
};

void* runLoad(void* argument) {
    // On Linux each thread has a nice value (setpriority(2)). -1 is a valid one: only errno reports a
    // failure.
    errno = 0;
    const int nice = getpriority(PRIO_PROCESS, 0);
    if (errno == 0) setpriority(PRIO_PROCESS, 0, std::min(nice + niceIncrement, maxNice));
    Load& load = *static_cast<Load*>(argument);
    const bool isLoaded = load.container.load(load.urlsPath, load.domainsPath);
    QOR_SPACE::Monitor monitor(load.mutex);
    load.isLoaded = isLoaded;
    load.hasEnded = true;
    load.ended.notify();
    return nullptr;
}

}  // namespace

bool loadAtLowPriority(UrlContainer& container, const char* urlsPath, const char* domainsPath) {
    Load load{container, urlsPath, domainsPath, {}};
    if (startDetachedThread(runLoad, &load, stackSize) != 0) return container.load(urlsPath, domainsPath);
    QOR_SPACE::Monitor monitor(load.mutex);
    while (!load.hasEnded)
        load.ended.wait();
    return load.isLoaded;
}

}  // namespace KATD_SPACE
