// What a katd holds and what it leaves behind.
#ifndef KATD_TESTS_INSPECT_H
#define KATD_TESTS_INSPECT_H

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "asapsdk.h"
#include "support/Daemon.h"

namespace katd_test {

inline std::string procFolder(const Daemon& katd, const std::string& name) {
    return "/proc/" + std::to_string(katd.pid()) + "/" + name;
}

// Threads without a client: main, cache monitor, watchdog, and one of the thread sanitizer.
#if defined(__SANITIZE_THREAD__)
#define KATD_TSAN 1
#elif defined(__has_feature)
#define KATD_TSAN __has_feature(thread_sanitizer)
#else
#define KATD_TSAN 0
#endif
constexpr std::size_t IDLE_THREADS = KATD_TSAN ? 4 : 3;

inline std::size_t threadsOf(const Daemon& katd) {
    const std::filesystem::directory_iterator tasks(procFolder(katd, "task"));
    return static_cast<std::size_t>(std::distance(tasks, std::filesystem::directory_iterator()));
}

// What its descriptors stand for, the same for two homes: no numbers, and one name for all files of the log.
inline std::multiset<std::string> descriptorsOf(const Daemon& katd, const Home& home) {
    std::multiset<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(procFolder(katd, "fd"))) {
        std::error_code gone;
        std::string name = std::filesystem::read_symlink(entry.path(), gone).string();
        if (gone) continue;
        if (name.compare(0, home.path().size(), home.path()) == 0) name.erase(0, home.path().size());
        if (name.compare(0, 5, "/log/") == 0) name = "/log/";
        if (name.compare(0, 5, "/tmp/") == 0) name = "/tmp/" + name.substr(name.rfind('.'));
        result.insert(name.substr(0, name.find(":[")));
    }
    return result;
}

struct Memory {
    long sizeKiB;
    long residentKiB;
};

inline Memory memoryOf(const Daemon& katd) {
    std::istringstream pages(readFile(procFolder(katd, "statm")));
    Memory memory{};
    pages >> memory.sizeKiB >> memory.residentKiB;
    const long pageKiB = sysconf(_SC_PAGESIZE) / 1024;
    return {memory.sizeKiB * pageKiB, memory.residentKiB * pageKiB};
}

// All that the log holds, oldest file first: up to `rotated` numbered files, with gaps where a shift failed,
// the one that is on its way to them, the live one.
inline std::string wholeLog(const std::string& path, int rotated) {
    std::string text;
    for (int n = rotated; n >= 0; --n)
        text += readFile(path + "." + std::to_string(n));
    return text + readFile(path);
}

// The categories that a cache file has for a URL, none when it has not the URL or is damaged; *whole says
// whether the engine takes it.
inline std::vector<unsigned> cachedCategories(const std::string& path, const std::string& url,
                                              bool* whole = nullptr) {
    void* engine = CSDKMain_Create("WebSecCacheMaxEntries=100000");
    const bool loaded = CSDKMain_LoadWebSecCache(engine, path.c_str()) == 0;
    if (whole != nullptr) *whole = loaded;
    void* answer = CSDKMain_ClassifyUrl(engine, url.c_str());
    const unsigned short* numbers = nullptr;
    unsigned short count = 0;
    CSDKUrlCat_GetCategories(answer, &numbers, &count);
    const std::vector<unsigned> categories(numbers, numbers + count);
    CSDKUrlCat_Close(answer);
    CSDKMain_Close(engine);
    return categories;
}

inline bool isWholeCache(const std::string& path) {
    bool whole = false;
    cachedCategories(path, "", &whole);
    return whole;
}

}  // namespace katd_test

#endif
