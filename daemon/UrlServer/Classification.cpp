#include "UrlServer/Classification.h"

#include <cstdint>
#include <cstdlib>

#include "KatdUtil/Utils.h"
#include "UrlServer/ConnectionBuffer.h"
#include "UrlServer/Engine.h"
#include "UrlServer/Globals.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/Watchdog.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

constexpr std::uint32_t notListed = 0xFFFFFFFF;

enum class Answer { CATEGORIES, FINAL_UNKNOWN, UNKNOWN, FAILED, CLOSED };

// One call of the engine. *stored: the number of category bytes.
Answer callEngine(const char* url, int limitSec, unsigned char* categories, unsigned size, unsigned* stored,
                  ConnectionBuffer* client) {
    *stored = 0;
    EngineUse engine(urlSvr->sdkMain, urlSvr->engineUses);
    if (engine.handle() == nullptr) return Answer::CLOSED;  // the server is being torn down
    const EngineResult result = [&] {
        Watchdog watchdog(limitSec, LateCall::QUERY, url, client);
        return EngineResult(engine.handle(), url);
    }();
    if (result.failed()) {
        const EngineFailure failure;
        client->send();  // the message may wait for the log
        ERR_MSG("ASAPSDK::CSDKMain_classify_url Failed: Type=%d, Code=%d, Desc=%s", failure.type,
                failure.code, failure.description);
        return Answer::FAILED;
    }
    *stored = result.copyCategories(categories, size);
    if (*stored > 0) return Answer::CATEGORIES;
    return result.isFinal() ? Answer::FINAL_UNKNOWN : Answer::UNKNOWN;
}

}  // namespace

Listed lookUpLists(const char* url, unsigned length, char* workspace, unsigned char* category) {
    char* const text =
        workspace != nullptr ? workspace : static_cast<char*>(std::malloc(length + std::size_t{1}));
    if (text == nullptr) return Listed::NO_MEMORY;
    std::uint32_t number = notListed;
    const bool answered = urlSvr->urlManager.getUrlCategory(url, length, text, &number);
    if (text != workspace) std::free(text);
    if (!answered || number == notListed) return Listed::NO;
    *category = static_cast<unsigned char>(number & 0xFF);
    return Listed::YES;
}

unsigned askEngine(const char* url, unsigned char* categories, unsigned size, bool withRetry, bool* matched,
                   ConnectionBuffer& client) {
    unsigned retryTimes = 0;
    unsigned retryInterval = 0;
    if (withRetry) ops.conf.getQueryTimeout(&retryTimes, &retryInterval);
    const int limitSec = ops.conf.getCTEngineTimeout();
    // Wider than retryTimes, which may be the largest of its type.
    for (std::uint64_t tries = 0;;) {
        unsigned stored = 0;
        const Answer answer = callEngine(url, limitSec, categories, size, &stored, &client);
        if (answer == Answer::CLOSED) return 0;
        if (answer == Answer::FAILED) {
            urlSvr->addUrlNumber(false);
            return 0;
        }
        if (tries == 0) urlSvr->addUrlNumber(answer != Answer::UNKNOWN);
        const int shownTries = static_cast<int>(tries);
        if (answer == Answer::CATEGORIES) {
            DBG_MSG("Get url category for [%s]", url);
            *matched = true;
            if (withRetry) DBG_MSG("Query [%s] categories OK, retry times [%d]", url, shownTries);
            return stored;
        }
        if (answer == Answer::FINAL_UNKNOWN) {
            *matched = true;
            if (withRetry) DBG_MSG("Query [%s] categories OK, retry times [%d]", url, shownTries);
            DBG_MSG("DataCenter returns Unknown for [%s]", url);
            return 0;
        }
        if (retryTimes == 0) {
            DBG_MSG("DataCenter returns Unknown for [%s]", url);
            return 0;
        }
        if (client.waitForHangUp(retryInterval)) return 0;
        ++tries;
        if (tries > retryTimes) {
            DBG_MSG("query [%s] time out", url);
            DBG_MSG("Query [%s] categories fail, retry times [%d]", url, static_cast<int>(tries));
            return 0;
        }
    }
}

}  // namespace KATD_SPACE
