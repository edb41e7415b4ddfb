// An engine, asked as katd asks it.
#pragma once

#include <optional>

#include "asapsdk.h"
#include "support/TempDir.h"

namespace katd_test {

// The engine's answer: "5,44", "final" or "unknown". Nothing if it fails.
inline std::optional<std::string> askEngine(void* engine, const std::string& url) {
    void* const answer = CSDKMain_ClassifyUrl(engine, url.c_str());
    if (answer == nullptr) return std::nullopt;
    const unsigned short* numbers = nullptr;
    unsigned short count = 0;
    CSDKUrlCat_GetCategories(answer, &numbers, &count);
    std::string text = CSDKUrlCat_GetFlags(answer) == ASAPSDK_FLAG_FINAL ? "final" : "unknown";
    for (unsigned n = 0; n < count; ++n)
        text = (n == 0 ? "" : text + ",") + std::to_string(numbers[n]);
    CSDKUrlCat_Close(answer);
    return text;
}

}  // namespace katd_test
