// An engine in a folder of its own, driven by a rules file.
#ifndef KATD_TESTS_ENGINE_ENGINEFIXTURE_H
#define KATD_TESTS_ENGINE_ENGINEFIXTURE_H

#include <cstdlib>

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
        setRules("");
        setenv("ASAPSDK_RULES", rulesPath.c_str(), 1);
    }
    ~EngineFixture() override { CSDKMain_Close(engine); }
    // Puts rules in place of the old ones in one step.
    void setRules(const std::string& text) {
        writeFile(dir / "rules.new", text);
        std::filesystem::rename(dir / "rules.new", rulesPath);
    }
    void create(const std::string& maxEntries) {
        CSDKMain_Close(engine);
        engine = CSDKMain_Create(("ServerAddress=localhost;WebSecCacheMaxEntries=" + maxEntries).c_str());
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

    TempDir dir;
    const std::string rulesPath = dir / "rules";
    void* engine = nullptr;
};

}  // namespace katd_test

#endif
