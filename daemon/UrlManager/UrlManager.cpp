#include "UrlManager/UrlManager.h"

#include <cstring>

#include "KatdUtil/Utils.h"
#include "UrlManager/LowPriorityLoad.h"

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
        QOR_SPACE::Monitor freed(retiredMutex);  // the last look-up may still be freeing the lists before
    }
    if (!loadAtLowPriority(*idle, urlsPath, domainsPath)) {
        DBG_MSG("fail to reload url pattern from [%s] [%s]", Utils::shown(urlsPath),
                Utils::shown(domainsPath));
    }
    {
        QOR_SPACE::Monitor monitor(activeMutex);
        active_container = idle;
    }
    Retirement retirement(*this);
    QOR_SPACE::Monitor monitor(activeMutex);
    if (usersOf(*idle->peer) == 0) retirement.begin(*idle->peer);
    return true;
}

bool UrlManager::getUrlCategory(char* url, std::uint32_t* category) {
    return url != nullptr && getUrlCategory(url, std::strlen(url), url, category);
}

bool UrlManager::getUrlCategory(const char* url, std::size_t length, char* buffer, std::uint32_t* category) {
    if (!ready || url == nullptr || category == nullptr) return false;
    UrlContainer* container = nullptr;
    {
        QOR_SPACE::Monitor active(activeMutex);
        container = active_container;
        if (container == nullptr) return false;
        QOR_SPACE::Monitor users(container->mutex);
        ++container->users;
    }
    const bool answered = container->getUrlCategory(url, length, buffer, category);
    Retirement retirement(*this);
    QOR_SPACE::Monitor active(activeMutex);
    std::int32_t remaining = 0;
    {
        QOR_SPACE::Monitor users(container->mutex);
        remaining = --container->users;
    }
    if (remaining == 0 && container != active_container) retirement.begin(*container);
    return answered;
}

void UrlManager::Retirement::begin(UrlContainer& container) {
    if (!container.loaded) return;
    // Does not block: a container is retired only after the lists of the previous one were freed.
    manager.retiredMutex.lock();
    begun = true;
    container.unlink(&manager.retired);
}

UrlManager::Retirement::~Retirement() {
    if (!begun) return;
    manager.retired.urls.reset();
    manager.retired.domains.reset();
    manager.retiredMutex.unlock();
}

}  // namespace KATD_SPACE
