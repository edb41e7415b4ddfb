#include "UrlManager/QuietLoad.h"

#include <errno.h>
#include <sys/resource.h>

#include <algorithm>

#include "KatdUtil/DetachedThread.h"
#include "Mutex.h"
#include "UrlContainer/UrlContainer.h"

namespace KATD_SPACE {

namespace {

constexpr int nicer = 10;                  // steps of setpriority(2)
constexpr int lowestPriority = 19;         // the end of its scale
constexpr unsigned stackSize = 256 << 10;  // bytes, most of them for a block of the file

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
    // On Linux it is a thread's own (setpriority(2)). -1 may be a priority as well.
    errno = 0;
    const int priority = getpriority(PRIO_PROCESS, 0);
    if (errno == 0) setpriority(PRIO_PROCESS, 0, std::min(priority + nicer, lowestPriority));
    Load& load = *static_cast<Load*>(argument);
    const bool isLoaded = load.container.load(load.urlsPath, load.domainsPath);
    QOR_SPACE::Monitor monitor(load.mutex);
    load.isLoaded = isLoaded;
    load.hasEnded = true;
    load.ended.notify();
    return nullptr;
}

}  // namespace

bool loadQuietly(UrlContainer& container, const char* urlsPath, const char* domainsPath) {
    Load load{container, urlsPath, domainsPath, {}};
    if (startDetachedThread(runLoad, &load, stackSize) != 0) return container.load(urlsPath, domainsPath);
    QOR_SPACE::Monitor monitor(load.mutex);
    while (!load.hasEnded)
        load.ended.wait();
    return load.isLoaded;
}

}  // namespace KATD_SPACE
