// A thin layer over the closed classification engine, the only unit that includes its header. Destructors
// release the engine's handles.
#ifndef KATD_ENGINE_H
#define KATD_ENGINE_H

#include <atomic>

namespace KATD_SPACE {

// The last failure of the engine in the calling thread, copied. Construct it right after the failed call: the
// next call of that thread may overwrite it.
struct EngineFailure {
    EngineFailure();

    int type;
    int code;
    char description[1024];  // cut to fit, never null; a message shows less than this
};

// One answer of the engine; releases it. Used by the thread that created it.
class EngineResult {
public:
    // Asks the engine; blocks as long as the engine does. Check with failed().
    EngineResult(void* mainHandle, const char* url);
    ~EngineResult();
    EngineResult(const EngineResult&) = delete;
    EngineResult& operator=(const EngineResult&) = delete;

    bool failed() const { return handle == nullptr; }
    // Copies the low bytes of the non-zero category numbers, in order, at most size of them; the number
    // copied.
    unsigned copyCategories(unsigned char* categories, unsigned size) const;
    // Whether an answer without categories is final.
    bool isFinal() const;

private:
    void* handle;
};

// The engine's main handle as one thread uses it: while an EngineUse lives, the handle is not closed.
class EngineUse {
public:
    // Both belong to the server. The handle is null once it is being closed.
    EngineUse(std::atomic<void*>& mainHandle, std::atomic<int>& useCount);
    ~EngineUse();
    EngineUse(const EngineUse&) = delete;
    EngineUse& operator=(const EngineUse&) = delete;

    void* handle() const { return usedHandle; }  // null: the engine is closed

private:
    std::atomic<int>& uses;
    void* usedHandle;
};

// Registers the calling thread with the engine for its lifetime.
class EngineAttachment {
public:
    EngineAttachment();
    ~EngineAttachment();
    EngineAttachment(const EngineAttachment&) = delete;
    EngineAttachment& operator=(const EngineAttachment&) = delete;
};

namespace Engine {

// The main handle for a connection string; null on failure (see EngineFailure).
void* open(const char* connectionString);
void close(void* mainHandle);

// The engine's cache of learnt categories from or into a file; false on failure (see EngineFailure).
bool loadCache(void* mainHandle, const char* path);
bool saveCache(void* mainHandle, const char* path);

}  // namespace Engine
}  // namespace KATD_SPACE

#endif
