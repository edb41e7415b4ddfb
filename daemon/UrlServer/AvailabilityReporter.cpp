#include "UrlServer/AvailabilityReporter.h"

#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "KatdUtil/DetachedThread.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/Engine.h"
#include "UrlServer/MessageGate.h"
#include "UrlServer/ProcessEnd.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

constexpr int endDelaySec = 300;
constexpr int reporterLeadMs =
    250;  // the reporting thread's time to get from the end of the delay to the event

// The thread that writes the messages, and the calling thread, which watches that the event is passed in
// time. The first to claim the event passes it.
class AvailabilityReporter {
public:
    AvailabilityReporter(const char* eventWord, bool ofNetwork, const EngineFailure* engineFailure)
        : event(eventWord), isNetwork(ofNetwork), failure(engineFailure) {
        sem_init(&reported, 0, 0);
    }
    AvailabilityReporter(const AvailabilityReporter&) = delete;
    AvailabilityReporter& operator=(const AvailabilityReporter&) = delete;

    [[noreturn]] void run() {
        postponeEnd(1, endDelaySec * 1000 + endGraceMs);
        if (startDetachedThread(reportInThread, this) == 0) {
            watch();
        } else {
            report();
        }
        endProcess(1);
    }

private:
    void report() {
        if (isNetwork) sayUnreachable();
        Utils::sleepn(endDelaySec);
        if (!isNetwork) ERR_MSG("Cannot get correct dns, katd returned.");
        Utils::writeSysLog(event, claimOrStop);
    }

    void watch() {
        MessageGate::mute();
        Utils::sleepn(endDelaySec);
        const timespec step{0, 10 * 1000000L};
        for (int waitedMs = 0; waitedMs < reporterLeadMs && !isClaimed.load(); waitedMs += 10)
            nanosleep(&step, nullptr);
        if (claim()) {
            Utils::writeSysLog(event);
            endWithin(1, endGraceMs);  // the last chance of the messages
        }
        while (sem_wait(&reported) != 0 && errno == EINTR) {
        }
    }

    void sayUnreachable() const {
        if (failure != nullptr) {
            ERR_MSG(
                "ASAPSDK::CSDKMain_classify_url Failed: Type=%d, Code=%d, Desc=%s,check Net Status Fail, "
                "katd exits !",
                failure->type, failure->code, failure->description);
        } else {
            ERR_MSG("Check Net Status Fail, katd exits !");
        }
    }

    static void* reportInThread(void* self) {
        static_cast<AvailabilityReporter*>(self)->report();
        claim();  // not done yet if there is no program to run
        sem_post(&reported);
        return nullptr;
    }

    static bool claim() {
        if (isClaimed.exchange(true)) return false;
        postponeEnd(1, Utils::sysLogLimitSec * 1000 + endGraceMs);
        return true;
    }
    static void claimOrStop() {
        if (claim()) return;
        sem_post(&reported);
        for (;;)
            pause();
    }

    static inline std::atomic<bool> isClaimed{false};
    static inline sem_t reported;

    const char* const event;
    const bool isNetwork;
    const EngineFailure* const failure;
};

}  // namespace

void endForDns() {
    AvailabilityReporter("CheckDnsFail", false, nullptr).run();
}

void endForNetwork(const EngineFailure* failure) {
    AvailabilityReporter("CheckNetFail", true, failure).run();
}

}  // namespace KATD_SPACE
