// The check at start-up that the engine reaches its service, and the handlers of SIGALRM.
#include <errno.h>
#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include "KatdUtil/DetachedThread.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/Engine.h"
#include "UrlServer/ProcessEnd.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/Watchdog.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

constexpr char testUrl[] = "www.example.com";  // stable, public, and known to any classification service
constexpr int answerLimitSec = 30;
constexpr int endDelaySec = 300;    // lets a supervisor's restart not hammer a service that is down
constexpr int messageWaitMs = 200;  // for the message to get out before the delay begins

// The failed check's message, told in a thread of its own: it may wait for ever for the log, which another
// process or a hung engine call may hold.
class FailureMessage {
public:
    // failure null: no answer in time. It must live until the process ends.
    explicit FailureMessage(const EngineFailure* failure) : failure_(failure) {
        sem_init(&told_, 0, 0);
        if (startDetachedThread(tell, this) != 0) tell(this);
    }
    FailureMessage(const FailureMessage&) = delete;
    FailureMessage& operator=(const FailureMessage&) = delete;

    void await() {
        while (sem_wait(&told_) != 0 && errno == EINTR) {
        }
        sem_post(&told_);
    }
    // Whether it is told within that time; not measured on the clock of the day, which may be set at boot.
    bool awaitAtMost(int milliseconds) {
        const timespec step{0, 10 * 1000000L};
        for (int waited = 0; sem_trywait(&told_) != 0; waited += 10) {
            if (waited >= milliseconds) return false;
            nanosleep(&step, nullptr);
        }
        sem_post(&told_);
        return true;
    }

private:
    static void* tell(void* self) {
        FailureMessage* message = static_cast<FailureMessage*>(self);
        if (const EngineFailure* failure = message->failure_) {
            ERR_MSG(
                "ASAPSDK::CSDKMain_classify_url Failed: Type=%d, Code=%d, Desc=%s,check Net Status Fail, "
                "katd exits !",
                failure->type, failure->code, failure->description);
        } else {
            ERR_MSG("Check Net Status Fail, katd exits !");
        }
        sem_post(&message->told_);
        return nullptr;
    }

    const EngineFailure* failure_;
    sem_t told_;
};

// Whatever blocks on the way, the process ends within a second after the delay; only the system-log program,
// once it runs, is waited for as long as it takes.
[[noreturn]] void endForNetwork(const EngineFailure* failure) {
    endWithin(1, endDelaySec * 1000 + endGraceMs);
    FailureMessage message(failure);
    if (!message.awaitAtMost(messageWaitMs)) stayMute();
    Utils::sleepn(endDelaySec);
    endWithin(1, endGraceMs);
    Utils::writeSysLog("CheckNetFail", cancelEnd);
    endWithin(1, endGraceMs);
    message.await();
    endProcess(1);
}

void answerExpired(const char*, int) {
    endForNetwork(nullptr);
}

}  // namespace

void UrlServer::checkNetStatus(void* sdkMain) {
    if (sdkMain == nullptr) return;
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = alarm_signal_handler1;
    sigaction(SIGALRM, &action, &previous);
    {
        const EngineResult result = [&] {
            Watchdog watchdog(answerLimitSec, answerExpired, nullptr);
            return EngineResult(sdkMain, testUrl);
        }();
        if (!result.failed()) {
            sigaction(SIGALRM, &previous, nullptr);
            return;
        }
    }
    const EngineFailure failure;
    endForNetwork(&failure);
}

void alarm_signal_handler1(int) {
    _exit(1);
}

void alarm_signal_handler2(int) {
    _exit(1);
}

}  // namespace KATD_SPACE
