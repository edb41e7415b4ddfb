// An engine in a folder of its own, driven by a rules file.
#ifndef KATD_TESTS_ENGINE_ENGINEFIXTURE_H
#define KATD_TESTS_ENGINE_ENGINEFIXTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "asapsdk.h"
#include "support/TempDir.h"

namespace katd_test {

// "fail TYPE CODE TEXT" of the calling thread's last failure.
inline std::string lastFailure() {
    const std::string numbers =
        std::to_string(CSDKException_GetType()) + " " + std::to_string(CSDKException_GetErrorCode());
    void* const text = CSDKException_GetErrorDescription();
    const std::string failure = "fail " + numbers + " " + csdkstring_getstring(text);
    csdkstring_close(text);
    return failure;
}

class EngineFixture : public testing::Test {
protected:
    EngineFixture() {
        writeFile(rulesPath(), "");
        setenv("ASAPSDK_RULES", rulesPath().c_str(), 1);
        setenv("ASAPSDK_TRACE", tracePath().c_str(), 1);
    }
    ~EngineFixture() override {
        CSDKMain_Close(engine);
        unsetenv("ASAPSDK_RULES");
        unsetenv("ASAPSDK_TRACE");
    }

    std::string rulesPath() const { return dir / "rules"; }
    std::string tracePath() const { return dir / "trace"; }

    // Puts rules in place of the old ones in one step.
    void setRules(const std::string& text) {
        writeFile(dir / "rules.new", text);
        ASSERT_EQ(0, std::rename((dir / "rules.new").c_str(), rulesPath().c_str()));
    }

    void create(const std::string& maxEntries) {
        CSDKMain_Close(engine);
        engine = CSDKMain_Create(
            ("ServerAddress=localhost;HttpConnPoolSize=4;WebSecCacheMaxEntries=" + maxEntries).c_str());
        ASSERT_NE(nullptr, engine);
    }

    // What the engine answers: "5,44", "unknown", "final" or the failure.
    std::string ask(const std::string& url) {
        if (engine == nullptr) create("100");
        void* const answer = CSDKMain_ClassifyUrl(engine, url.c_str());
        if (answer == nullptr) return lastFailure();
        const unsigned short* categories = nullptr;
        unsigned short count = 0;
        CSDKUrlCat_GetCategories(answer, &categories, &count);
        std::string text;
        for (unsigned i = 0; i < count; ++i)
            text += (i == 0 ? "" : ",") + std::to_string(categories[i]);
        if (text.empty()) text = CSDKUrlCat_GetFlags(answer) == ASAPSDK_FLAG_FINAL ? "final" : "unknown";
        CSDKUrlCat_Close(answer);
        return text;
    }

    // The number of lines of the trace that hold the text.
    unsigned traced(const std::string& text) const {
        std::istringstream lines(readFile(tracePath()));
        unsigned count = 0;
        for (std::string line; std::getline(lines, line);)
            count += line.find(text) != line.npos;
        return count;
    }

    TempDir dir;
    void* engine = nullptr;
};

}  // namespace katd_test

#endif
