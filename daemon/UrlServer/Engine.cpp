#include "UrlServer/Engine.h"

#include <cstdio>

#include "../../engine/include/asapsdk.h"

namespace KATD_SPACE {

namespace {

// A text of the engine; releases it.
class EngineText {
public:
    explicit EngineText(void* handle) : handle_(handle) {}
    ~EngineText() {
        if (handle_ != nullptr) csdkstring_close(handle_);
    }
    EngineText(const EngineText&) = delete;
    EngineText& operator=(const EngineText&) = delete;

    const char* text() const {
        const char* text = handle_ != nullptr ? csdkstring_getstring(handle_) : nullptr;
        return text != nullptr ? text : "";
    }

private:
    void* handle_;
};

}  // namespace

EngineFailure::EngineFailure() : type(CSDKException_GetType()), code(CSDKException_GetErrorCode()) {
    EngineText text(CSDKException_GetErrorDescription());
    std::snprintf(description, sizeof(description), "%s", text.text());
}

EngineResult::EngineResult(void* mainHandle, const char* url)
    : handle_(CSDKMain_ClassifyUrl(mainHandle, url)) {}

EngineResult::~EngineResult() {
    if (handle_ != nullptr) CSDKUrlCat_Close(handle_);
}

unsigned EngineResult::copyCategories(unsigned char* categories, unsigned size) const {
    const unsigned short* numbers = nullptr;
    unsigned short count = 0;
    CSDKUrlCat_GetCategories(handle_, &numbers, &count);
    unsigned stored = 0;
    for (unsigned i = 0; numbers != nullptr && i < count && stored < size; ++i) {
        if (numbers[i] != 0) categories[stored++] = static_cast<unsigned char>(numbers[i] & 0xFF);
    }
    return stored;
}

bool EngineResult::isFinal() const {
    return (CSDKUrlCat_GetFlags(handle_) & 1) != 0;
}

// The use is counted before the handle is read, and the handle is cleared before the uses are read: one of
// the two threads sees the other.
EngineUse::EngineUse(std::atomic<void*>& mainHandle, std::atomic<int>& uses) : uses_(uses) {
    uses_.fetch_add(1);
    handle_ = mainHandle.load();
}

EngineUse::~EngineUse() {
    uses_.fetch_sub(1);
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
