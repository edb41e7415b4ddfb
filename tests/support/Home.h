// A home directory of katd for one test: settings, lists, rules of the stand-in engine, and a log name of its
// own.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <map>
#include <vector>

#include "support/TempDir.h"

namespace katd_test {

// A list file of "CCC|item" lines in any order.
inline std::string listFile(std::vector<std::string> lines) {
    std::sort(lines.begin(), lines.end(),
              [](const std::string& a, const std::string& b) { return a.substr(4) < b.substr(4); });
    std::size_t size = 0;
    std::string items;
    for (const std::string& line : lines) {
        size += line.size() - 4 + 1;
        items += line + "\n";
    }
    return std::to_string(lines.size()) + "|" + std::to_string(size) + "\n" + items;
}

using Settings = std::map<std::string, std::string>;

class Home {
public:
    // The settings below with those of overrides, where an empty value omits a key.
    explicit Home(const Settings& overrides = {}) {
        for (const char* folder : {"conf", "data", "log"})
            std::filesystem::create_directory(dir_ / folder);
        Settings settings = {
            {"data_conn_string", "data/katd.sock"},
            {"cache_file", "data/cache"},
            {"max_cache_entries", "1000"},
            {"save_cache_interval", "24"},
            {"conn_pool_size", "4"},
            {"query_retry_times", "2"},
            {"query_retry_interval", "1"},
            {"ctengine_query_timeout", "20"},
            {"server_address", "localhost"},
            {"urls_list_path", "urls.list"},
            {"domains_list_path", "domains.list"},
            {"log_file_path", "log/" + logName_},
            {"log_level", "debug"},
        };
        for (const auto& [key, value] : overrides)
            settings[key] = value;
        std::string ini = "[katd]\n";
        for (const auto& [key, value] : settings) {
            if (!value.empty()) ini += key + " = " + value + "\n";
        }
        writeFile(dir_ / "conf/katd.ini", ini);
        writeFile(dir_ / "urls.list", listFile({"005|shop.example/tools", "006|shop.example/toys"}));
        writeFile(dir_ / "domains.list", listFile({"012|ads.example", "034|news.example"}));
        rules("");
    }
    // The log's lock files are in /tmp under its name, whatever its folder.
    ~Home() {
        for (const char* ending : {".lock", ".rlock"})
            std::filesystem::remove("/tmp/" + logName_ + ending);
    }

    // Replaces the file atomically: the engine may read it at any time.
    void rules(const std::string& text) const {
        writeFile(dir_ / "rules.new", text);
        std::filesystem::rename(dir_ / "rules.new", rulesPath());
    }

    std::string path() const { return dir_.path(); }
    std::string operator/(const std::string& name) const { return dir_ / name; }
    std::string socketPath() const { return dir_ / "data/katd.sock"; }
    std::string rulesPath() const { return dir_ / "rules"; }
    std::string tracePath() const { return dir_ / "trace"; }
    std::string logPath() const { return dir_ / ("log/" + logName_); }
    std::string logName() const { return logName_; }
    std::string log() const { return readFile(logPath()); }

    // How often an engine function has been called, with that argument unless it is empty.
    int engineCalls(const std::string& function, const std::string& argument = "") const {
        std::istringstream trace(
            readFile(tracePath()));  // lines of FUNCTION<tab>THREAD<tab>ARGUMENT<tab>RESULT
        int calls = 0;
        for (std::string line; std::getline(trace, line);) {
            calls += line.compare(0, function.size() + 1, function + '\t') == 0 &&
                     (argument.empty() || line.find('\t' + argument + '\t') != std::string::npos);
        }
        return calls;
    }

private:
    static inline int number_ = 0;

    TempDir dir_;
    const std::string logName_ =
        "katd-test-" + std::to_string(getpid()) + "-" + std::to_string(++number_) + ".log";
};

}  // namespace katd_test
