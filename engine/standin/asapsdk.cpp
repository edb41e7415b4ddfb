#include "asapsdk.h"

#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <thread>

#include "Cache.h"
#include "ConnectionString.h"
#include "Rules.h"
#include "Text.h"
#include "Trace.h"

namespace asapsdk {

namespace {

struct Engine {
    explicit Engine(std::size_t maxEntries) : cache(maxEntries) {}
    Cache cache;
};

struct Answer {
    Categories categories;
    int flags = 0;
};

thread_local Failure lastFailure;

// Never destroyed: other threads may be in a call when the process ends.
RulesFile& rules() {
    static RulesFile& file = *new RulesFile;
    return file;
}

void waitAsAsked(const Outcome& outcome) {
    if (outcome.delayMs != 0) std::this_thread::sleep_for(std::chrono::milliseconds(outcome.delayMs));
    while (outcome.kind == Outcome::hang)
        pause();
}

// A failure as an outcome; conclude() stores it for the thread.
Outcome failed(Failure failure) {
    Outcome outcome;
    outcome.kind = Outcome::fail;
    outcome.failure = std::move(failure);
    return outcome;
}

Outcome nullArgument() {
    return failed({ASAPSDK_BAD_ARGUMENT, 0, "a handle, text or path is null"});
}

// Ends a call. Returns whether the function succeeded.
bool conclude(Outcome* outcome) {
    waitAsAsked(*outcome);
    if (outcome->kind != Outcome::fail && outcome->kind != Outcome::partial) return true;
    lastFailure = std::move(outcome->failure);
    return false;
}

// Runs the body of a function. An exception becomes the thread's failure, and the result `onFailure`.
template <typename Result, typename Body>
Result guarded(Result onFailure, Body body) {
    try {
        return body();
    } catch (const std::exception&) {
        lastFailure.type = ASAPSDK_NO_MEMORY;
        lastFailure.code = 0;
        lastFailure.text.clear();
        return onFailure;
    }
}

template <typename Body>
void guarded(Body body) {
    guarded(0, [&body] {
        body();
        return 0;
    });
}

// A load or save. The rule decides whether `work` runs, and may replace its result. `work` receives the cache
// and whether the rule asks for all of it; it returns false and sets the failure if it fails.
template <typename Work>
int cacheCall(const char* function, const char* rule, void* sdkMain, const char* path, Work work) {
    return guarded(-1, [&] {
        Outcome outcome = nullArgument();
        if (sdkMain != nullptr && path != nullptr) {
            outcome = rules().takeForFunction(rule).value_or(Outcome());
            if (outcome.kind == Outcome::ok || outcome.kind == Outcome::partial) {
                Failure failure;
                if (!work(&static_cast<Engine*>(sdkMain)->cache, outcome.kind == Outcome::ok, &failure)) {
                    const auto delayMs = outcome.delayMs;
                    outcome = failed(std::move(failure));
                    outcome.delayMs = delayMs;
                }
            }
        }
        trace(function, path == nullptr ? "null" : path, outcome.toText());
        return conclude(&outcome) ? 0 : -1;
    });
}

// The outcome of a query for a URL.
Outcome outcomeFor(const Engine& engine, const std::string& url) {
    if (auto outcome = rules().takeForUrl(url)) return *outcome;
    Outcome outcome;
    outcome.kind = Outcome::unknown;
    if (auto learnt = engine.cache.find(url)) {
        outcome.kind = Outcome::categories;
        outcome.numbers = std::move(*learnt);
    }
    return outcome;
}

}  // namespace

}  // namespace asapsdk

using namespace asapsdk;

void* CSDKMain_Create(const char* connection) {
    return guarded(static_cast<Engine*>(nullptr), [connection]() -> Engine* {
        Outcome outcome = nullArgument();
        if (connection != nullptr) outcome = rules().takeForFunction("create").value_or(Outcome());
        trace("CSDKMain_Create", connection == nullptr ? "null" : connection, outcome.toText());
        if (!conclude(&outcome) || connection == nullptr) return nullptr;
        return new Engine(engine::connectionNumber(connection, "WebSecCacheMaxEntries", 0));
    });
}

void CSDKMain_Close(void* sdkMain) {
    guarded([sdkMain] { traceHandle("CSDKMain_Close", sdkMain); });
    delete static_cast<Engine*>(sdkMain);
}

void* CSDKMain_ClassifyUrl(void* sdkMain, const char* url) {
    return guarded(static_cast<Answer*>(nullptr), [sdkMain, url]() -> Answer* {
        auto* const engine = static_cast<Engine*>(sdkMain);
        Outcome outcome = nullArgument();
        std::string name;
        if (engine != nullptr && url != nullptr) {
            name = normalisedUrl(url);
            outcome = outcomeFor(*engine, name);
        }
        trace("CSDKMain_ClassifyUrl", url == nullptr ? "null" : url, outcome.toText());
        if (!conclude(&outcome) || engine == nullptr) return nullptr;
        if (outcome.kind == Outcome::categories) engine->cache.learn(name, outcome.numbers);
        const int flags = outcome.kind == Outcome::final ? ASAPSDK_FLAG_FINAL : 0;
        return new Answer{std::move(outcome.numbers), flags};
    });
}

void CSDKUrlCat_GetCategories(void* urlCat, const unsigned short** categories, unsigned short* count) {
    const auto* const answer = static_cast<const Answer*>(urlCat);
    if (categories != nullptr) *categories = answer == nullptr ? nullptr : answer->categories.data();
    // Rules and cache lines are limited to 65535 numbers.
    if (count != nullptr)
        *count = static_cast<unsigned short>(answer == nullptr ? 0 : answer->categories.size());
    guarded([=] {
        traceHandle("CSDKUrlCat_GetCategories", urlCat, answer == nullptr ? "" : toText(answer->categories));
    });
}

int CSDKUrlCat_GetFlags(void* urlCat) {
    const int flags = urlCat == nullptr ? 0 : static_cast<const Answer*>(urlCat)->flags;
    guarded([=] { traceHandle("CSDKUrlCat_GetFlags", urlCat, std::to_string(flags)); });
    return flags;
}

void CSDKUrlCat_Close(void* urlCat) {
    guarded([urlCat] { traceHandle("CSDKUrlCat_Close", urlCat); });
    delete static_cast<Answer*>(urlCat);
}

int CSDKMain_LoadWebSecCache(void* sdkMain, const char* path) {
    return cacheCall("CSDKMain_LoadWebSecCache", "load", sdkMain, path,
                     [path](Cache* cache, bool, Failure* failure) { return cache->load(path, failure); });
}

int CSDKMain_SaveWebSecCache(void* sdkMain, const char* path) {
    return cacheCall(
        "CSDKMain_SaveWebSecCache", "save", sdkMain, path,
        [path](Cache* cache, bool whole, Failure* failure) { return cache->save(path, whole, failure); });
}

void CSDKThread_Attach(void) {
    guarded([] { trace("CSDKThread_Attach"); });
}

void CSDKThread_Detach(void) {
    guarded([] { trace("CSDKThread_Detach"); });
}

int CSDKException_GetType(void) {
    const int type = lastFailure.type;
    guarded([type] { trace("CSDKException_GetType", "-", std::to_string(type)); });
    return type;
}

int CSDKException_GetErrorCode(void) {
    const int code = lastFailure.code;
    guarded([code] { trace("CSDKException_GetErrorCode", "-", std::to_string(code)); });
    return code;
}

void* CSDKException_GetErrorDescription(void) {
    guarded([] { trace("CSDKException_GetErrorDescription", "-", lastFailure.text); });
    return guarded(static_cast<std::string*>(nullptr), [] { return new std::string(lastFailure.text); });
}

const char* csdkstring_getstring(void* text) {
    const char* const characters = text == nullptr ? "" : static_cast<const std::string*>(text)->c_str();
    guarded([=] { traceHandle("csdkstring_getstring", text, characters); });
    return characters;
}

void csdkstring_close(void* text) {
    guarded([text] { traceHandle("csdkstring_close", text); });
    delete static_cast<std::string*>(text);
}
