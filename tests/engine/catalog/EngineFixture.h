// The catalogue engine on a catalogue and settings of its own.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "catalog/CatalogFixture.h"
#include "support/Daemon.h"
#include "support/Engine.h"

namespace katd_test {

class EngineFixture : public catalog::CatalogFixture {
protected:
    EngineFixture() {
        setenv("KATD_CATALOG_INI", (folder / "catalog.ini").c_str(), 1);
        settings("");
    }
    ~EngineFixture() override { CSDKMain_Close(engine); }

    // Writes the settings: the catalogue's path and these lines.
    void settings(const std::string& lines) {
        writeFile(folder / "catalog.ini", "[catalog]\ncatalog_path = " + path + "\n" + lines);
    }

    struct Line {
        const char* entry;
        unsigned category;
        bool instead = false;
    };
    // Puts a new catalogue in the place of the old one.
    void replace(const std::vector<Line>& lines) {
        catalog::Builder builder;
        for (const Line& line : lines) {
            catalog::Url url;
            ASSERT_EQ(nullptr, catalog::readEntry(line.entry, &url));
            builder.add(url, line.category, 1, line.instead);
        }
        std::string failure;
        ASSERT_TRUE(builder.write(path + ".new", false, {}, {}, &result, &failure)) << failure;
        std::filesystem::rename(path + ".new", path);
    }

    void create(const std::string& sizes = "HttpConnPoolSize=4;WebSecCacheMaxEntries=1000") {
        CSDKMain_Close(engine);
        engine = CSDKMain_Create(("ServerAddress=localhost;" + sizes).c_str());
        ASSERT_NE(nullptr, engine) << lastFailure();
    }

    static std::string lastFailure() {
        void* const text = CSDKException_GetErrorDescription();
        const std::string failure =
            std::to_string(CSDKException_GetType()) + " " + csdkstring_getstring(text);
        csdkstring_close(text);
        return failure;
    }

    std::string ask(const std::string& url) {
        const auto answer = katd_test::askEngine(engine, url);
        return answer ? *answer : lastFailure();
    }

    // Asks until the answer is the expected one; the last one.
    std::string askUntil(const std::string& url, const std::string& expected) {
        std::string answer;
        eventually([&] { return (answer = ask(url)) == expected; });
        return answer;
    }

    void* engine = nullptr;
};

// Standard error goes to a file that can be read meanwhile, which gtest's own capture does not allow.
class Messages {
public:
    explicit Messages(const std::string& path) : path_(path), before_(dup(STDERR_FILENO)) {
        const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~Messages() {
        dup2(before_, STDERR_FILENO);
        close(before_);
    }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    std::string text() const { return readFile(path_); }
    bool contain(const std::string& part) const { return text().find(part) != std::string::npos; }
    // Waits for a message with this part.
    bool waitFor(const std::string& part) const {
        return eventually([&] { return contain(part); });
    }

private:
    const std::string path_;
    const int before_;
};

}  // namespace katd_test
