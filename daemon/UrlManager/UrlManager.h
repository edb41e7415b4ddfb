#ifndef KATD_URLMANAGER_H
#define KATD_URLMANAGER_H

#include <atomic>
#include <cstdint>

#include "Mutex.h"
#include "UrlContainer/UrlContainer.h"

namespace KATD_SPACE {

// The local lists in two containers: look-ups use the active one while the other is reloaded, then the two
// swap roles. Thread-safe, except loadUrlList. Nothing throws.
//
// Look-ups start on the active container only. The reload that retires a container, or the last look-up on
// it, empties it; it is loaded only while no look-up uses it. Its lists are freed without activeMutex, so
// that look-ups do not wait, but before the next load, so that there are never three pairs. Lock order:
// reloadMutex, activeMutex, then a container's mutex or retiredMutex.
class UrlManager {
public:
    UrlManager() = default;
    ~UrlManager();
    UrlManager(const UrlManager&) = delete;
    UrlManager& operator=(const UrlManager&) = delete;

    // First load. Returns true if the lists are now in use; false if neither file could be loaded or lists
    // were in use already (they stay). A null path counts as a file that cannot be opened. REQUIRES: no other
    // load or reload runs.
    bool loadUrlList(const char* urlsPath, const char* domainsPath);
    // Reloads, or loads for the first time. Returns true if the lists were replaced, even if neither file
    // could be loaded: then every look-up returns false until a later reload. Returns false, and keeps the
    // lists, if a first load failed or a look-up that began before the previous reload is still running.
    bool reloadUrlList(const char* urlsPath, const char* domainsPath);
    // UrlContainer::getUrlCategory on the active lists. Returns false before the first successful load, too.
    bool getUrlCategory(char* url, std::uint32_t* category);
    bool getUrlCategory(const char* url, std::size_t length, char* buffer, std::uint32_t* category);

    UrlContainer first;
    UrlContainer second;
    // Null before the first load. Written under activeMutex by the load or reload, which may read it without.
    UrlContainer* active_container = nullptr;
    QOR_SPACE::Mutex reloadMutex;    // held during a reload
    QOR_SPACE::Mutex activeMutex;    // guards active_container and the emptying of a retired container
    std::atomic<bool> ready{false};  // a load has succeeded; never cleared

private:
    // Takes the lists out of a retired container and frees them at the end of its scope. Construct it before
    // activeMutex is taken, so that it is destroyed after the release.
    class Retirement {
    public:
        explicit Retirement(UrlManager& owner) : manager(owner) {}
        ~Retirement() QOR_NO_THREAD_SAFETY_ANALYSIS;
        Retirement(const Retirement&) = delete;
        Retirement& operator=(const Retirement&) = delete;

        // REQUIRES: activeMutex is held.
        void begin(UrlContainer& container) QOR_NO_THREAD_SAFETY_ANALYSIS;

    private:
        UrlManager& manager;
        bool begun = false;
    };

    QOR_SPACE::Mutex retiredMutex;  // held by a Retirement that has begun; guards `retired`
    UrlContainer::Lists retired;
};

}  // namespace KATD_SPACE

#endif
