// What a running katd holds, and what it leaves behind.
#pragma once

#include <set>

#include "support/Engine.h"
#include "support/Home.h"

namespace katd_test {

inline std::filesystem::directory_iterator procEntries(pid_t pid, const std::string& folder) {
    return std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/" + folder);
}

inline std::size_t threadsOf(pid_t pid) {
    return static_cast<std::size_t>(std::distance(procEntries(pid, "task"), {}));
}

// What its descriptors refer to, comparable between two homes: without numbers, and with one name for all
// files of the log.
inline std::multiset<std::string> descriptorsOf(pid_t pid, const Home& home) {
    std::multiset<std::string> result;
    for (const auto& entry : procEntries(pid, "fd")) {
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

// The whole log, oldest file first: up to `rotated` numbered files, with gaps where a shift failed, then the
// live one.
inline std::string wholeLog(const std::string& path, int rotated) {
    std::string text;
    for (int n = rotated; n >= 0; --n)
        text += readFile(path + "." + std::to_string(n));
    return text + readFile(path);
}

// The categories that a cache file has for a URL; nothing when the engine refuses the file.
inline std::optional<std::string> cachedCategories(const std::string& path, const std::string& url) {
    void* engine = CSDKMain_Create("WebSecCacheMaxEntries=100000");
    const bool isLoaded = CSDKMain_LoadWebSecCache(engine, path.c_str()) == 0;
    const auto answer = askEngine(engine, url);
    CSDKMain_Close(engine);
    return isLoaded ? answer : std::nullopt;
}

}  // namespace katd_test
