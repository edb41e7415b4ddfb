#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>

#include "../ThrowPositions.h"
#include "Exception.h"
#include "LogModule.h"
#include "StringHelper.h"
#include "Utils.h"
#include "io/File.h"
#include "util/Log.h"

namespace QOR_SPACE {

namespace {

const char* levelLabel(Log::LogLevel level) {
    switch (level) {
        case Log::WARNING:
            return "warning";
        case Log::ERROR:
            return "error";
        case Log::DEBUG:
            return "debug";
        default:
            return "info";
    }
}

// "DATE TIME<tab>". Repeated if the date changes between the two calls.
std::string linePrefix() {
    std::string date;
    std::string time;
    do {
        date = Utils::getLocalDate();
        time = Utils::getLocalTime();
    } while (date != Utils::getLocalDate());
    return date + ' ' + time + Log::fieldSeparator;
}

// A descriptor for appending to the file, created if missing; -1 on failure and for a FIFO: the open would
// wait for a reader, and later writes for a slow one, while the log's locks are held.
int openForAppending(const char* path) {
    const int opened = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0666);
    struct stat status {};
    if (opened < 0 || fstat(opened, &status) != 0 || S_ISREG(status.st_mode)) return opened;
    if (S_ISFIFO(status.st_mode)) {
        ::close(opened);
        return -1;
    }
    fcntl(opened, F_SETFL, O_APPEND);  // a terminal, for instance, takes whole records only in blocking mode
    return opened;
}

}  // namespace

FileLog::FileLog(OutputStream* outputStream) : Log(outputStream), fd(-1), ownStream(false) {}

FileLog::FileLog(const char* logPath) : Log(nullptr), fd(-1), ownStream(true) {
    FileLog::setPath(logPath);
}

FileLog::~FileLog() {
    close();
}

void FileLog::close() {
    if (stream == nullptr || !ownStream) return;
    try {
        stream->close();
    } catch (...) {
        // The descriptor is closed all the same. Anything may be thrown here: creating the message needs
        // memory.
    }
    delete stream;
    stream = nullptr;
}

bool FileLog::setPath(const char* newPath) {
    if (newPath == nullptr) return false;
    if (*newPath == '\0') {
        close();
        stream = &_gStdOS;
        ownStream = false;
        return false;
    }
    try {
        if (stream != nullptr && ownStream && path == newPath && File(path).isSame(fd)) return true;
        close();
        // A rotation in another thread may be reading the path: do not assign the same value.
        if (path != newPath) path = newPath;
        fd = openForAppending(path.c_str());
        if (fd < 0) return false;
        FileOutputStream* opened = new (std::nothrow) FileOutputStream(fd);
        if (opened == nullptr) {
            ::close(fd);
            fd = -1;
            throwException<OutOfMemoryException>(throwPosition::logStreamAllocation,
                                                 throwPosition::outOfMemory);
        }
        stream = opened;
        ownStream = true;
        return true;
    } catch (const IOException& failure) {
        reportFailure(failure.getMessage());
        return false;
    }
}

std::string& FileLog::getPath() {
    return path;
}

void FileLog::write(const std::string& text) {
    Log::write(linePrefix() + text);
}

void FileLog::write(const LogEntry& entry) {
    std::string line = linePrefix();
    format(entry, line);
    Log::write(line);
}

void FileLog::write(const std::string& text, Log::LogLevel level) {
    Log::write(linePrefix() + levelLabel(level) + fieldSeparator + text);
}

void FileLog::clear() {
    close();
    if (!path.empty()) File(path).remove();
    setPath(path.c_str());
}

void FileLog::format(const LogEntry& entry, std::string& out) {
    for (std::size_t i = 0; i < entry.pairs.size(); ++i) {
        std::string value = entry.pairs[i].value.toString();
        StringHelper::replaceChar(value, fieldSeparatorChar, ' ');
        if (i > 0) out += fieldSeparator;
        out += value;
    }
    out += endOfLine;
}

}  // namespace QOR_SPACE
