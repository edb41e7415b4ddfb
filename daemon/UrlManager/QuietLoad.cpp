#include "UrlManager/QuietLoad.h"

#include <errno.h>
#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>

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
    bool isLoaded;
};

void* runLoad(void* argument) {
    // On Linux it is a thread's own (setpriority(2)). -1 may be a priority as well.
    errno = 0;
    const int priority = getpriority(PRIO_PROCESS, 0);
    if (errno == 0) setpriority(PRIO_PROCESS, 0, std::min(priority + nicer, lowestPriority));
    Load& load = *static_cast<Load*>(argument);
    load.isLoaded = load.container.load(load.urlsPath, load.domainsPath);
    return nullptr;
}

}  // namespace

bool loadQuietly(UrlContainer& container, const char* urlsPath, const char* domainsPath) {
    Load load = {container, urlsPath, domainsPath, false};
    pthread_attr_t attributes;
    pthread_t thread;
    bool isStarted = false;
    if (pthread_attr_init(&attributes) == 0) {
        isStarted = pthread_attr_setstacksize(&attributes, stackSize) == 0 &&
                    pthread_create(&thread, &attributes, runLoad, &load) == 0;
        pthread_attr_destroy(&attributes);
    }
    if (!isStarted) return container.load(urlsPath, domainsPath);
    pthread_join(thread, nullptr);
    return load.isLoaded;
}

}  // namespace KATD_SPACE
