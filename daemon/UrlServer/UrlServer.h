#ifndef KATD_URLSERVER_URLSERVER_H
#define KATD_URLSERVER_URLSERVER_H

#include <atomic>
#include <cstdint>

#include "Mutex.h"
#include "UrlManager/UrlManager.h"

namespace KATD_SPACE {

// The daemon's one server: the engine's handle, the local lists, the counters, and the locks that the
// requests share. Made by the main thread; every thread reaches it through urlSvr, which does
// not change while they run, and the process ends with it. Returns codes; std::bad_alloc may leave the
// constructor and saveCache.
//
// When locks nest, ctrlMutex is taken first.
class UrlServer {
public:
    // Opens the engine with a connection string built from the settings, checks that it answers (which ends
    // the process when it does not) and loads the category cache. Afterwards `valid` tells whether it is
    // usable.
    UrlServer();
    // Closes the engine. The cache is not saved.
    ~UrlServer();
    UrlServer(const UrlServer&) = delete;
    UrlServer& operator=(const UrlServer&) = delete;

    // The accept loop: a thread for each connection to the socket of the settings. Returns only when the
    // server is not usable or the listening socket cannot be created. Main thread.
    void startService();

    // Body of a connection's thread: socket carries the descriptor, which it closes. Returns null.
    static void* createInstance(void* socket);

    // Stores both counters; does nothing when a pointer is null. Any thread.
    void getUrlNumber(unsigned* all, unsigned* matched);
    // Counts one query, and one matched query if so. The counters wrap. Any thread.
    void addUrlNumber(bool matched);

    // Loads the category cache from the settings' file, if there is one. A failure is reported and harmless.
    void loadCache();
    // Saves the category cache through path + ".tmp", so that path always holds a whole save; true on
    // success. Any thread; one save at a time. Works on urlSvr.
    static bool saveCache(const char* path);
    // Starts the thread that saves the cache periodically.
    void startCacheMonitor();
    // Its body; returns null only when there is nothing to do.
    static void* cacheMonitor(void*);

    // Has the engine classify a well-known host. Returns when it answered within 30 seconds; else waits 300
    // seconds, reports the event and ends the process with status 1.
    static void checkNetStatus(void* sdkMain);

    // Closes the engine's handle unless a call is still inside it after a second: the handle's memory is then
    // left to it. Later queries find no engine. Nothing else is freed, so other threads may go on running.
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

// The one server; null before it exists. Written by the main thread alone, before the others start.
extern UrlServer* urlSvr;

// The handlers of SIGALRM while the first answer of the engine is awaited, and afterwards. They never return.
// If the signal is that of a Watchdog's timer, the late call is reported; otherwise it is from outside, and
// the process ends with status 1 at once.
void alarm_signal_handler1(int);
void alarm_signal_handler2(int);

}  // namespace KATD_SPACE

#endif
