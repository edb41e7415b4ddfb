#include "UrlServer/LateCall.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "KatdUtil/Utils.h"
#include "UrlServer/AvailabilityReporter.h"
#include "UrlServer/MessageGate.h"
#include "UrlServer/MessageOutput.h"
#include "UrlServer/ProcessEnd.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

constexpr char variableName[] = "KATD_LATE_CALL";

// For execve(2); never freed.
char* const* startArguments = nullptr;
std::vector<char*>* startEnvironment = nullptr;  // the last but one is null, for the variable
int lockedPidFile = -1;

}  // namespace

void endForLateCall(LateCall call, const char* url, int limitSec) {
    if (call == LateCall::NETWORK_CHECK) endForNetwork(nullptr);
    // The message may wait for a lock that the late call holds.
    endWithin(1, endGraceMs);
    MessageGate::reserve();
    ERR_MSG("[%s] not return from ctengine, alarm timeout is [%d], katd have to exit !", url, limitSec);
    endProcess(1);
}

void LateCallExecution::prepare(char** argv, int pidFile) {
    startArguments = argv;
    lockedPidFile = pidFile;
    startEnvironment = new std::vector<char*>;
    for (char** entry = environ; *entry != nullptr; ++entry)
        startEnvironment->push_back(*entry);
    startEnvironment->insert(startEnvironment->end(), 2, nullptr);
}

LateCallExecution::LateCallExecution(LateCall call, const char* url, int limitSec) {
    std::snprintf(variable, sizeof(variable), "%s=%d %d %d %d %.1023s", variableName, static_cast<int>(call),
                  limitSec, static_cast<int>(ops.logLevel), lockedPidFile, url);
}

void LateCallExecution::execute() const {
    if (startEnvironment == nullptr) _exit(1);
    fcntl(lockedPidFile, F_SETFD, 0);
    (*startEnvironment)[startEnvironment->size() - 2] = const_cast<char*>(variable);
    execve("/proc/self/exe", startArguments, startEnvironment->data());
    _exit(1);
}

void LateCallExecution::reportIfRequested() {
    const char* const value = std::getenv(variableName);
    if (value == nullptr) return;
    const std::string request = value;
    unsetenv(variableName);
    const char* url = request.c_str();
    int numbers[4];
    for (int& number : numbers) {
        char* end = nullptr;
        number = static_cast<int>(std::strtol(url, &end, 10));
        url = end;
    }
    if (*url == ' ')
        ++url;  // the URL, which may begin with a blank
    else if (*url != '\0')
        return;
    const auto [call, limitSec, level, pidFile] = numbers;
    endWithin(1, endGraceMs);
    fcntl(pidFile, F_SETFD, FD_CLOEXEC);
    printMessages();
    const char* const home = std::getenv("KATD_DIR");
    if (home != nullptr) logMessages(home);
    ops.logLevel = level;
    endForLateCall(static_cast<LateCall>(call), url, limitSec);
}

}  // namespace KATD_SPACE
