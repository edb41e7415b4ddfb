// The check at start-up that the engine reaches its service, and the handlers of SIGALRM.
#include <unistd.h>

#include <csignal>

#include "UrlServer/AvailabilityReporter.h"
#include "UrlServer/Engine.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/Watchdog.h"

namespace KATD_SPACE {

namespace {

constexpr char testUrl[] = "www.example.com";  // stable, public, and known to any classification service
constexpr int answerLimitSec = 30;

[[noreturn]] void endOnAlarm() {
    Watchdog::endIfLate();
    _exit(1);
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
            Watchdog watchdog(answerLimitSec, LateCall::NETWORK_CHECK, testUrl);
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
    endOnAlarm();
}

void alarm_signal_handler2(int) {
    endOnAlarm();
}

}  // namespace KATD_SPACE
