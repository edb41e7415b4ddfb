#include "UrlServer/Engine.h"

#include <cstdio>

#include "../../engine/include/asapsdk.h"

namespace KATD_SPACE {

namespace {

// A text of the engine; releases it.
class EngineText {
public:
    explicit EngineText(void* textHandle) : handle(textHandle) {}
    ~EngineText() {
        if (handle != nullptr) csdkstring_close(handle);
    }
    EngineText(const EngineText&) = delete;
    EngineText& operator=(const EngineText&) = delete;

    const char* text() const {
        const char* const characters = handle != nullptr ? csdkstring_getstring(handle) : nullptr;
        return characters != nullptr ? characters : "";
    }

private:
    void* handle;
};

}  // namespace

EngineFailure::EngineFailure() : type(CSDKException_GetType()), code(CSDKException_GetErrorCode()) {
    EngineText text(CSDKException_GetErrorDescription());
    std::snprintf(description, sizeof(description), "%s", text.text());
}

EngineResult::EngineResult(void* mainHandle, const char* url)
    : handle(CSDKMain_ClassifyUrl(mainHandle, url)) {}

EngineResult::~EngineResult() {
    if (handle != nullptr) CSDKUrlCat_Close(handle);
}

unsigned EngineResult::copyCategories(unsigned char* categories, unsigned size) const {
    const unsigned short* numbers = nullptr;
    unsigned short count = 0;
    CSDKUrlCat_GetCategories(handle, &numbers, &count);
    unsigned stored = 0;
    for (unsigned i = 0; numbers != nullptr && i < count && stored < size; ++i) {
        if (numbers[i] != 0) categories[stored++] = static_cast<unsigned char>(numbers[i] & 0xFF);
    }
    return stored;
}

bool EngineResult::isFinal() const {
    return (CSDKUrlCat_GetFlags(handle) & 1) != 0;
}

// The use is counted before the handle is read; closeEngine() clears the handle before it reads the count.
// One of the two threads sees what the other did.
EngineUse::EngineUse(std::atomic<void*>& mainHandle, std::atomic<int>& useCount) : uses(useCount) {
    uses.fetch_add(1);
    usedHandle = mainHandle.load();
}

EngineUse::~EngineUse() {
    uses.fetch_sub(1);
}

EngineAttachment::EngineAttachment() {
    CSDKThread_Attach();
}

EngineAttachment::~EngineAttachment() {
    CSDKThread_Detach();
}

namespace Engine {

void* open(const char* connectionString) {
    return CSDKMain_Create(connectionString);
}

void close(void* mainHandle) {
    CSDKMain_Close(mainHandle);
}

bool loadCache(void* mainHandle, const char* path) {
    return CSDKMain_LoadWebSecCache(mainHandle, path) == 0;
}

bool saveCache(void* mainHandle, const char* path) {
    return CSDKMain_SaveWebSecCache(mainHandle, path) == 0;
}

}  // namespace Engine
}  // namespace KATD_SPACE
