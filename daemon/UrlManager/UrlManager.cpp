#include "UrlManager/UrlManager.h"

#include <cstring>

#include "KatdUtil/Utils.h"
#include "UrlManager/QuietLoad.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlManager";

std::int32_t usersOf(UrlContainer& container) {
    QOR_SPACE::Monitor monitor(container.mutex);
    return container.users;
}

}  // namespace

UrlManager::~UrlManager() {
    active_container = nullptr;
    first.reset();
    second.reset();
}

bool UrlManager::loadUrlList(const char* urlsPath, const char* domainsPath) {
    if (active_container != nullptr) return false;
    first.reset();
    second.reset();
    first.peer = &second;
    second.peer = &first;
    if (!first.load(urlsPath, domainsPath)) {
        DBG_MSG("fail to load url pattern from [%s] [%s]", Utils::shown(urlsPath), Utils::shown(domainsPath));
        first.reset();
        return false;
    }
    {
        QOR_SPACE::Monitor monitor(activeMutex);
        active_container = &first;
    }
    ready = true;
    return true;
}

bool UrlManager::reloadUrlList(const char* urlsPath, const char* domainsPath) {
    QOR_SPACE::Monitor reload(reloadMutex);
    if (active_container == nullptr) {
        DBG_MSG("In %s, active_container is null, do load url ", "reloadUrlList");
        return loadUrlList(urlsPath, domainsPath);
    }
    UrlContainer* idle = active_container->peer;
    {
        QOR_SPACE::Monitor monitor(activeMutex);
        if (idle == nullptr || usersOf(*idle) != 0) {
            INFO_MSG("There is no idle url container");
            return false;
        }
        idle->reset();
    }
    {
        QOR_SPACE::Monitor freed(retiredMutex);  // the last look-up may still be at it
    }
    if (!loadQuietly(*idle, urlsPath, domainsPath)) {
        DBG_MSG("fail to reload url pattern from [%s] [%s]", Utils::shown(urlsPath),
                Utils::shown(domainsPath));
    }
    {
        QOR_SPACE::Monitor monitor(activeMutex);
        active_container = idle;
    }
    bool isEmptied = false;
    {
        QOR_SPACE::Monitor monitor(activeMutex);
        isEmptied = usersOf(*idle->peer) == 0 && unlinkRetired(*idle->peer);
    }
    if (isEmptied) freeRetired();
    return true;
}

bool UrlManager::getUrlCategory(char* url, std::uint32_t* category) {
    return url != nullptr && getUrlCategory(url, std::strlen(url), url, category);
}

bool UrlManager::getUrlCategory(const char* url, std::size_t length, char* room, std::uint32_t* category) {
    if (!ready || url == nullptr || category == nullptr) return false;
    UrlContainer* container = nullptr;
    {
        QOR_SPACE::Monitor active(activeMutex);
        container = active_container;
        if (container == nullptr) return false;
        QOR_SPACE::Monitor users(container->mutex);
        ++container->users;
    }
    const bool answered = container->getUrlCategory(url, length, room, category);
    bool isEmptied = false;
    {
        QOR_SPACE::Monitor active(activeMutex);
        std::int32_t remaining = 0;
        {
            QOR_SPACE::Monitor users(container->mutex);
            remaining = --container->users;
        }
        isEmptied = remaining == 0 && container != active_container && unlinkRetired(*container);
    }
    if (isEmptied) freeRetired();
    return answered;
}

// Under activeMutex. With true, freeRetired() must follow, without it. It waits for nobody: a container is
// not retired before the lists of the one before are freed.
bool UrlManager::unlinkRetired(UrlContainer& container) {
    if (!container.loaded) return false;
    retiredMutex.lock();
    container.unlink(&retired);
    return true;
}

void UrlManager::freeRetired() {
    retired.urls.reset();
    retired.domains.reset();
    retiredMutex.unlock();
}

}  // namespace KATD_SPACE
