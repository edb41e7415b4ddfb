#ifndef KATD_URLSERVER_H
#define KATD_URLSERVER_H

#include <atomic>
#include <cstdint>

#include "Mutex.h"
#include "UrlManager/UrlManager.h"

namespace KATD_SPACE {

// The daemon's one server: the engine's handle, the local lists, the counters, and the locks that the
// requests share. The main thread creates it; all threads use it through urlSvr. The constructor and
// saveCache may throw std::bad_alloc.
//
// When locks nest, ctrlMutex is taken first.
class UrlServer {
public:
    // Opens the engine with a connection string built from the settings, checks that it answers (if not, the
    // process ends) and loads the category cache. Afterwards `valid` says whether the server is usable.
    UrlServer();
    // Closes the engine. The cache is not saved.
    ~UrlServer();
    UrlServer(const UrlServer&) = delete;
    UrlServer& operator=(const UrlServer&) = delete;

    // The accept loop: starts a thread for each connection. Returns only if the server is not usable or the
    // listening socket cannot be created. Main thread.
    void startService();

    // Body of a connection's thread. socket is the descriptor, cast to a pointer; it is closed here. Returns
    // null.
    static void* createInstance(void* socket);

    // Stores both counters; does nothing when a pointer is null. Any thread.
    void getUrlNumber(unsigned* all, unsigned* matched);
    // Counts one query, and one matched query if so. The counters wrap. Any thread.
    void addUrlNumber(bool matched);

    // Loads the category cache from its file, if there is one. A failure is reported and harmless.
    void loadCache();
    // Saves the category cache of urlSvr to path + ".tmp" and renames that, so that path always holds a
    // complete save; true on success. Thread-safe; one save at a time.
    static bool saveCache(const char* path);
    // Starts the thread that saves the cache periodically.
    void startCacheMonitor();
    // Its body; returns null if there is nothing to do.
    static void* cacheMonitor(void*);

    // Has the engine classify a well-known host. Returns if it answers within 30 seconds; otherwise reports
    // the failure and ends the process (endForNetwork).
    static void checkNetStatus(void* sdkMain);

    // Closes the engine's handle. If a call still uses it after a second, it stays open. Later queries find
    // no engine. Nothing else is freed: other threads may go on running.
    void closeEngine();

    static const char TEMP_DIR[];

    bool valid;                  // the handle exists and the engine has answered; set by the constructor
    std::atomic<void*> sdkMain;  // the engine's handle, null when absent; cleared before it is closed
    unsigned allUrls QOR_GUARDED_BY(numberMutex);      // queries that went to the engine
    unsigned matchedUrls QOR_GUARDED_BY(numberMutex);  // those answered definitively at once
    QOR_SPACE::Mutex cacheMutex;                       // one cache save at a time
    QOR_SPACE::Mutex ctrlMutex;                        // one control request at a time
    QOR_SPACE::Mutex numberMutex;                      // guards allUrls and matchedUrls
    std::atomic<bool> handledRequest;  // a URL query was served since the start; never cleared
    UrlManager urlManager;             // the local lists
    std::atomic<int> engineUses{0};    // calls under way on sdkMain (EngineUse)
};

// The handlers of SIGALRM while the first answer of the engine is awaited, and afterwards. They never return.
// If the signal is that of a Watchdog's timer, the late call is reported; otherwise it is from outside, and
// the process ends with status 1 at once.
void alarm_signal_handler1(int);
void alarm_signal_handler2(int);

}  // namespace KATD_SPACE

#endif
