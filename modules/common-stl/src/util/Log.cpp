#include "util/Log.h"

#include <unistd.h>

#include "Exception.h"
#include "LogModule.h"
#include "StringHelper.h"

namespace QOR_SPACE {

namespace {

std::atomic<bool> logEnabled{true};
std::atomic<Log::LogLevel> logLevel{Log::INFO};
std::atomic<unsigned long> rotationSize{0};

}  // namespace

std::atomic<std::int32_t> Log::_extensionLimits{4};

// In this order: the later ones use the earlier ones, also during the destruction at exit.
FileOutputStream _gStdOS(STDERR_FILENO);
static Log _gDummyLog(nullptr);
static RotationFileLog _gSysLog(&_gStdOS);
static DebugLog _gDebugLog(&_gStdOS);

void reportFailure(const std::string& message) noexcept {
    try {
        const std::string line = message + Log::endOfLine;
        _gStdOS.write(line.data(), static_cast<int>(line.size()));
    } catch (...) {
        // It cannot be reported anywhere else.
    }
}

void Log::enableLog() {
    logEnabled.store(true, std::memory_order_relaxed);
}

void Log::disableLog() {
    logEnabled.store(false, std::memory_order_relaxed);
}

void Log::setLogLevel(const LogLevel& level) {
    logLevel.store(level, std::memory_order_relaxed);
}

Log::LogLevel Log::getLogLevel() {
    return logLevel.load(std::memory_order_relaxed);
}

void Log::setRotationSize(unsigned long size) {
    rotationSize.store(size, std::memory_order_relaxed);
}

unsigned long Log::getRotationSize() {
    return rotationSize.load(std::memory_order_relaxed);
}

void Log::setExtensionLimits(int limit) {
    if (limit > 0) _extensionLimits.store(limit, std::memory_order_relaxed);
}

Log* Log::debugLog() {
    return _gDebugLog.enabled.load(std::memory_order_relaxed) ? &_gDebugLog : &_gDummyLog;
}

void Log::setDebugLogEnabled(bool on) {
    _gDebugLog.enabled.store(on, std::memory_order_relaxed);
}

Log* Log::errLog() {
    return &_gDebugLog;
}

Log* Log::infoLog() {
    return &_gDebugLog;
}

Log* Log::warningLog() {
    return getLogLevel() == WARNING ? &_gDebugLog : &_gDummyLog;
}

bool Log::setDebugLogPath(const char* path) {
    return _gDebugLog.RotationFileLog::setPath(path);
}

std::string Log::getDebugLogPath() {
    return _gDebugLog.getPath();
}

bool Log::setSysLogPath(const char* path) {
    return _gSysLog.RotationFileLog::setPath(path);
}

std::string Log::getSysLogPath() {
    return _gSysLog.getPath();
}

int Log::sysLogRotation() {
    return _gSysLog.reqRotation();
}

Log::Log(OutputStream* outputStream) : stream(outputStream) {}

Log::~Log() = default;

void Log::write(const std::string& text) {
    if (!logEnabled.load(std::memory_order_relaxed)) return;
    std::string record = text;
    if (!StringHelper::endsWith(record, endOfLine)) record += endOfLine;
    try {
        beforeWrite();
        try {
            if (stream != nullptr) stream->write(record.data(), static_cast<int>(record.size()));
        } catch (...) {
            writeFailed = true;
            afterWrite();  // releases the locks
            throw;
        }
        afterWrite();
    } catch (const Exception& failure) {
        reportFailure(failure.getMessage());
    }
}

void Log::write(const LogEntry& entry) {
    std::string text;
    format(entry, text);
    Log::write(text);
}

void Log::write(const std::string& text, Log::LogLevel) {
    Log::write(text);
}

void Log::clear() {}

void Log::deleteBySize(unsigned long) {}

void Log::format(const LogEntry& entry, std::string& out) {
    for (const NameValuePair<TypedValue>& pair : entry.pairs) {
        out += pair.toString();
        out += endOfLine;
    }
    out += endOfRecord;
}

void Log::beforeWrite() {}

void Log::afterWrite() {}

}  // namespace QOR_SPACE
