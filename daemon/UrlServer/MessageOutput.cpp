#include "UrlServer/MessageOutput.h"

#include <unistd.h>

#include <cstdio>
#include <new>
#include <string>

#include "KatdConf/LogConf.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/MessageGate.h"
#include "util/Log.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

}  // namespace

void printLog(const char* text) {
    if (MessageGate::pass()) std::printf("%s", text);
}

void writeDebugLog(const char* text) {
    if (!MessageGate::pass()) return;
    try {
        QOR_SPACE::Log::debugLog()->write(std::string(text), QOR_SPACE::Log::DEBUG);
    } catch (const std::bad_alloc&) {
        // The record is lost, as on a full disk. Standard error is where the log reports its own failures.
        constexpr char lost[] = "Out of memory\n";
        const ssize_t ignored = write(STDERR_FILENO, lost, sizeof(lost) - 1);
        static_cast<void>(ignored);
    }
}

void printMessages() {
    ops.logLevel = 1;
    ops.output = printLog;
}

void logMessages(const char* home) {
    using QOR_SPACE::Log;
    LogConf conf(home);
    conf.load();
    const char* path = conf.getLogFilePath();
    Utils::makeParentDir(path);
    if (!Log::setDebugLogPath(path)) {
        ERR_MSG("setDebugLogPath fail with [%s]", path);
        return;
    }
    Log::setDebugLogEnabled(true);
    Log::setRotationSize(static_cast<unsigned long>(conf.getSizeLimit()));
    Log::setExtensionLimits(conf.getRotationNumber());
    ops.logLevel = conf.getLogLevel();
    ops.output = writeDebugLog;
}

}  // namespace KATD_SPACE
