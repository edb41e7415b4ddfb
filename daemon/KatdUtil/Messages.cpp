#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr std::size_t bufferSize = 1024;  // bytes of a piece of a message
constexpr std::size_t textLimit = 1023;   // bytes used: at most 1022 characters and the NUL

constexpr std::int32_t errorLevel = 1;  // lowest message level that shows errors
constexpr std::int32_t debugLevel = 3;  // lowest message level that shows debug messages

__attribute__((format(printf, 2, 0))) void emitMessage(const char* kind, const char* format,
                                                       va_list arguments) {
    const int callersErrno = errno;
    char text[bufferSize] = "";
    std::snprintf(text, textLimit, "[%s][%s:%d] ", kind, LOG_FILE, static_cast<int>(LOG_LINE));
    ops.output(text);
    text[0] = '\0';
    errno = callersErrno;  // for "%m": ops.output may have changed it
    std::vsnprintf(text, textLimit, format, arguments);
    ops.output(text);
    ops.output("\n");
    errno = callersErrno;
}

}  // namespace

void Utils::infoMsg(const char* format, ...) {
    if (ops.output == nullptr) return;
    va_list arguments;
    va_start(arguments, format);
    emitMessage("INF", format, arguments);
    va_end(arguments);
}

void Utils::errMsg(const char* format, ...) {
    if (ops.output == nullptr || ops.logLevel.load(std::memory_order_relaxed) < errorLevel) return;
    va_list arguments;
    va_start(arguments, format);
    emitMessage("ERR", format, arguments);
    va_end(arguments);
}

void Utils::dbgMsg(const char* format, ...) {
    if (!showsDebug()) return;
    va_list arguments;
    va_start(arguments, format);
    emitMessage("DBG", format, arguments);
    va_end(arguments);
}

bool Utils::showsDebug() {
    return ops.output != nullptr && ops.logLevel.load(std::memory_order_relaxed) >= debugLevel;
}

}  // namespace KATD_SPACE
