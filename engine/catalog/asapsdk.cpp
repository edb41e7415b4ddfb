// The engine's interface, answered from a catalogue file.
#include "asapsdk.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "Live.h"
#include "Settings.h"
#include "Store.h"

namespace engine {

namespace {

struct Failure {
    int type = 0;
    int code = 0;
    std::string text;
};

thread_local Failure lastFailure;

void fail(int type, int code, const std::string& text) {
    lastFailure.type = type;
    lastFailure.code = code;
    lastFailure.text = text;
}

// Runs the body of an interface function. An exception becomes lastFailure and the result `onFailure`.
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

struct Engine {
    std::unique_ptr<Live> live;
    std::unique_ptr<Store> store;  // null: none is set up
};

// The category numbers follow in memory.
struct UrlCategories {
    bool final;
    unsigned short count;

    unsigned short* numbers() { return reinterpret_cast<unsigned short*>(this + 1); }

    // `known`: the answer is complete.
    static UrlCategories* make(const catalog::Answer& answer, bool known = true) {
        void* const memory = ::operator new(sizeof(UrlCategories) + answer.count * sizeof *answer.categories);
        auto* const result =
            new (memory) UrlCategories{known && answer.count == 0, static_cast<unsigned short>(answer.count)};
        std::copy(answer.categories, answer.categories + answer.count, result->numbers());
        return result;
    }
};

// The whole cache file without a shared store: there is nothing then that could be learnt.
constexpr std::string_view cacheHeader = "katd-catalog-cache 1\n";

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, CloseFile>;

int cacheFailure(const char* verb, const char* path) {
    const int error = errno;
    fail(ASAPSDK_BAD_CACHE, error, std::string("cannot ") + verb + " " + path + ": " + std::strerror(error));
    return -1;
}

int badArgument() {
    fail(ASAPSDK_BAD_ARGUMENT, 0, "null argument");
    return -1;
}

}  // namespace

}  // namespace engine

using namespace engine;

void* CSDKMain_Create(const char* connection) {
    return guarded(static_cast<Engine*>(nullptr), [connection]() -> Engine* {
        if (connection == nullptr) return badArgument(), nullptr;
        Settings settings;
        std::string failure;
        auto created = std::make_unique<Engine>();
        if (Settings::load(&settings, &failure)) created->live = Live::open(settings.catalog, &failure);
        if (created->live && !settings.shared.empty()) {
            StoreSettings store;
            if (store.read(settings, connection, &failure)) created->store = Store::start(store, &failure);
        }
        if (failure.empty()) return created.release();
        fail(ASAPSDK_BAD_CATALOG, 0, failure);
        return nullptr;
    });
}

void CSDKMain_Close(void* sdkMain) {
    delete static_cast<Engine*>(sdkMain);
}

void* CSDKMain_ClassifyUrl(void* sdkMain, const char* url) {
    return guarded(static_cast<UrlCategories*>(nullptr), [sdkMain, url]() -> UrlCategories* {
        if (sdkMain == nullptr || url == nullptr) return badArgument(), nullptr;
        const Engine& engine = *static_cast<Engine*>(sdkMain);
        UrlCategories* result = nullptr;
        std::optional<catalog::SharedQuestion> question;
        std::string failure;
        const auto use = [&](const catalog::Answer& answer, const catalog::Url* asked) {
            if (engine.store && !answer.covered && asked != nullptr) {
                question.emplace(*asked);
            } else {
                result = UrlCategories::make(answer);
            }
        };
        if (!engine.live->classify(url, &failure, use)) fail(ASAPSDK_BAD_CATALOG, 0, failure);
        if (question) {
            catalog::Answer answer;
            const bool known = engine.store->classify(std::move(*question), &answer);
            result = UrlCategories::make(answer, known);
        }
        return result;
    });
}

void CSDKUrlCat_GetCategories(void* urlCat, const unsigned short** categories, unsigned short* count) {
    auto* const answer = static_cast<UrlCategories*>(urlCat);
    if (categories != nullptr) *categories = answer == nullptr ? nullptr : answer->numbers();
    if (count != nullptr) *count = answer == nullptr ? 0 : answer->count;
}

int CSDKUrlCat_GetFlags(void* urlCat) {
    return urlCat != nullptr && static_cast<const UrlCategories*>(urlCat)->final ? ASAPSDK_FLAG_FINAL : 0;
}

void CSDKUrlCat_Close(void* urlCat) {
    ::operator delete(urlCat);
}

int CSDKMain_LoadWebSecCache(void* sdkMain, const char* path) {
    return guarded(-1, [sdkMain, path] {
        if (sdkMain == nullptr || path == nullptr) return badArgument();
        const FileHandle file(std::fopen(path, "re"));
        if (!file) return cacheFailure("open", path);
        std::string text;
        char piece[16384];
        while (const std::size_t size = std::fread(piece, 1, sizeof piece, file.get()))
            text.append(piece, size);
        if (std::ferror(file.get()) != 0) return cacheFailure("read", path);
        const auto& store = static_cast<Engine*>(sdkMain)->store;
        if (text == cacheHeader || (store && store->load(text))) return 0;
        fail(ASAPSDK_BAD_CACHE, 0,
             std::string(path) + " is no cache file of this engine, or it is cut or damaged");
        return -1;
    });
}

int CSDKMain_SaveWebSecCache(void* sdkMain, const char* path) {
    return guarded(-1, [sdkMain, path] {
        if (sdkMain == nullptr || path == nullptr) return badArgument();
        FileHandle file(std::fopen(path, "we"));
        if (!file) return cacheFailure("open", path);
        const auto& store = static_cast<Engine*>(sdkMain)->store;
        const bool written = store ? store->save(file.get())
                                   : std::fwrite(cacheHeader.data(), cacheHeader.size(), 1, file.get()) == 1;
        if (!written || std::fclose(file.release()) != 0) return cacheFailure("write", path);
        return 0;
    });
}

void CSDKThread_Attach(void) {}

void CSDKThread_Detach(void) {}

int CSDKException_GetType(void) {
    return lastFailure.type;
}

int CSDKException_GetErrorCode(void) {
    return lastFailure.code;
}

void* CSDKException_GetErrorDescription(void) {
    return guarded(static_cast<std::string*>(nullptr), [] { return new std::string(lastFailure.text); });
}

const char* csdkstring_getstring(void* text) {
    return text == nullptr ? "" : static_cast<const std::string*>(text)->c_str();
}

void csdkstring_close(void* text) {
    delete static_cast<std::string*>(text);
}
