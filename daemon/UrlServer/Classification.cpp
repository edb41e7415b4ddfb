// From a URL to its categories: the local lists first, the engine second.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "KatdUtil/Utils.h"
#include "UrlServer/Engine.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/UrlServerInstance.h"
#include "UrlServer/Watchdog.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

constexpr std::uint32_t notListed = 0xFFFFFFFF;

enum class Answer { CATEGORIES, FINAL_UNKNOWN, UNKNOWN, FAILED, CLOSED };

// One engine call; the answer's handle is released when this returns. stored: number of category bytes.
Answer askEngine(const char* url, int limitSec, unsigned char* categories, unsigned size, unsigned* stored) {
    *stored = 0;
    EngineUse engine(urlSvr->sdkMain, urlSvr->engineUses);
    if (engine.handle() == nullptr) return Answer::CLOSED;  // the server is being torn down
    const EngineResult result = [&] {
        Watchdog watchdog(limitSec, LateCall::QUERY, url);
        return EngineResult(engine.handle(), url);
    }();
    if (result.failed()) {
        const EngineFailure failure;
        ERR_MSG("ASAPSDK::CSDKMain_classify_url Failed: Type=%d, Code=%d, Desc=%s", failure.type,
                failure.code, failure.description);
        return Answer::FAILED;
    }
    *stored = result.copyCategories(categories, size);
    if (*stored > 0) return Answer::CATEGORIES;
    return result.isFinal() ? Answer::FINAL_UNKNOWN : Answer::UNKNOWN;
}

}  // namespace

UrlServerInstance::Listed UrlServerInstance::lookUpLists(const char* url, unsigned char* category) {
    const std::size_t length = strlen(url);
    // The look-up writes the normalised URL there.
    char* const room = lookUpRoom(length + 1);
    char* const text = room != nullptr ? room : static_cast<char*>(malloc(length + 1));
    if (text == nullptr) {
        ERR_MSG("In %s, fail to do strdup", "scanOneUrl");
        return Listed::NO_MEMORY;
    }
    std::uint32_t number = notListed;
    const bool answered = urlSvr->urlManager.getUrlCategory(url, length, text, &number);
    if (text != room) free(text);
    if (!answered || number == notListed) return Listed::NO;
    *category = static_cast<unsigned char>(number & 0xFF);
    return Listed::YES;
}

unsigned UrlServerInstance::scanOneUrl(const char* url, unsigned char* categories, unsigned size,
                                       bool withRetry, bool* matched) {
    return UrlServerInstance(-1).classify(url, categories, size, withRetry, matched);
}

unsigned UrlServerInstance::classify(const char* url, unsigned char* categories, unsigned size,
                                     bool withRetry, bool* matched) {
    bool unasked = false;
    bool& definitive = matched != nullptr ? *matched : unasked;
    definitive = false;
    if (urlSvr == nullptr || urlSvr->sdkMain == nullptr || categories == nullptr || size == 0) return 0;

    if (urlSvr->urlManager.ready) {
        switch (lookUpLists(url, categories)) {
            case Listed::YES:
                definitive = true;
                return 1;
            case Listed::NO_MEMORY:
                return 0;
            case Listed::NO:
                break;
        }
    }

    if (!stream.send()) return 0;
    unsigned retryTimes = 0;
    unsigned retryInterval = 0;
    if (withRetry) ops.conf.getQueryTimeout(&retryTimes, &retryInterval);
    const int limitSec = ops.conf.getCTEngineTimeout();
    // Wider than retryTimes, which may be the largest of its kind.
    for (std::uint64_t tries = 0;;) {
        unsigned stored = 0;
        const Answer answer = askEngine(url, limitSec, categories, size, &stored);
        if (answer == Answer::CLOSED) return 0;
        if (answer == Answer::FAILED) {
            urlSvr->addUrlNumber(false);
            return 0;
        }
        if (tries == 0) urlSvr->addUrlNumber(answer != Answer::UNKNOWN);
        const int shownTries = static_cast<int>(tries);
        switch (answer) {
            case Answer::CATEGORIES:
                DBG_MSG("Get url category for [%s]", url);
                definitive = true;
                if (withRetry) DBG_MSG("Query [%s] categories OK, retry times [%d]", url, shownTries);
                return stored;
            case Answer::FINAL_UNKNOWN:
                definitive = true;
                if (withRetry) DBG_MSG("Query [%s] categories OK, retry times [%d]", url, shownTries);
                DBG_MSG("DataCenter returns Unknown for [%s]", url);
                return 0;
            default:
                break;
        }
        if (retryTimes == 0) {
            DBG_MSG("DataCenter returns Unknown for [%s]", url);
            return 0;
        }
        if (stream.waitForHangUp(retryInterval)) return 0;
        ++tries;
        if (tries > retryTimes) {
            DBG_MSG("query [%s] time out", url);
            DBG_MSG("Query [%s] categories fail, retry times [%d]", url, static_cast<int>(tries));
            return 0;
        }
    }
}

}  // namespace KATD_SPACE
