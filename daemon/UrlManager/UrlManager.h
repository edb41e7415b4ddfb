#ifndef KATD_URLMANAGER_H
#define KATD_URLMANAGER_H

#include <atomic>
#include <cstdint>

#include "Mutex.h"
#include "UrlContainer/UrlContainer.h"

namespace KATD_SPACE {

// The local lists, twice: look-ups use the active container while the other is reloaded, then the two swap
// roles. Any number of threads may look up, and reload, at once. Nothing throws.
//
// Look-ups start on the active container only. A container that is not active is emptied as soon as no
// look-up runs on it, by the reload that retired it or by the last look-up, and loaded only while none does.
// Its lists are freed outside activeMutex, so that nobody waits for that, but before others are loaded, so
// that there are never three. Locks are taken in the order reloadMutex, activeMutex, a container's mutex or
// retiredMutex.
class UrlManager {
public:
    UrlManager() = default;
    ~UrlManager();
    UrlManager(const UrlManager&) = delete;
    UrlManager& operator=(const UrlManager&) = delete;

    // First load. True when the lists are in use now; false when neither file could be loaded, or when there
    // are lists in use already (they stay). Null paths count as files that cannot be opened. REQUIRES: no
    // other load or reload runs.
    bool loadUrlList(const char* urlsPath, const char* domainsPath);
    // Loads anew, or for the first time. True when the lists were exchanged, which they are even when neither
    // file could be loaded: every look-up answers false then, until a later reload. False when a first load
    // failed, or when a look-up that began before the last exchange is still running; the lists in use stay.
    bool reloadUrlList(const char* urlsPath, const char* domainsPath);
    // UrlContainer::getUrlCategory on the lists in use. False, too, before the first successful load.
    bool getUrlCategory(char* url, std::uint32_t* category);
    bool getUrlCategory(const char* url, std::size_t length, char* room, std::uint32_t* category);

    UrlContainer first;
    UrlContainer second;
    // The one in use, null before the first load. Written under activeMutex by the one load or reload that
    // runs, which alone may read it without.
    UrlContainer* active_container = nullptr;
    QOR_SPACE::Mutex reloadMutex;    // held for the whole of a reload
    QOR_SPACE::Mutex activeMutex;    // guards active_container and the emptying of a retired container
    std::atomic<bool> ready{false};  // a load succeeded once; never cleared

private:
    bool unlinkRetired(UrlContainer& container) QOR_NO_THREAD_SAFETY_ANALYSIS;
    void freeRetired() QOR_NO_THREAD_SAFETY_ANALYSIS;

    QOR_SPACE::Mutex
        retiredMutex;             // held from unlinking the lists of a retired container until they are freed
    UrlContainer::Lists retired;  // those lists
};

}  // namespace KATD_SPACE

#endif
