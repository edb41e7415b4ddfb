#include "io/OutputStream.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "../ThrowPositions.h"
#include "Exception.h"

namespace QOR_SPACE {

namespace {

void requireOpen(bool closed) {
    if (closed) throwException<IOException>(throwPosition::streamClosed, "Stream is already closed");
}

int openFlags(int mode) {
    switch (mode) {
        case FileOutputStream::TRUNCATE:
            return O_WRONLY | O_CREAT | O_TRUNC;
        case FileOutputStream::APPEND_EXISTING:
            return O_WRONLY | O_APPEND;
        case FileOutputStream::APPEND:
            return O_WRONLY | O_CREAT | O_APPEND;
        default:
            return O_WRONLY;
    }
}

// Error number for a short write, for which write(2) sets none.
int reasonOfShortWrite(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 ? EAGAIN : EINTR;
    rlimit largest{};
    const bool reached = getrlimit(RLIMIT_FSIZE, &largest) == 0 &&
                         static_cast<rlim_t>(lseek(fd, 0, SEEK_CUR)) >= largest.rlim_cur;
    return reached ? EFBIG : ENOSPC;
}

// One system call; throws at `position` unless all bytes were written.
int writeOnce(int fd, const char* data, int length, const ThrowPosition& position) {
    const ssize_t written = ::write(fd, data, static_cast<std::size_t>(length));
    if (written == length) return length;
    throwException<IOException>(position, std::strerror(written < 0 ? errno : reasonOfShortWrite(fd)));
}

}  // namespace

OutputStream::~OutputStream() = default;

void OutputStream::close() {
    throwException<IOException>(throwPosition::unimplementedClose, "Unimplemented");
}

void OutputStream::flush() {}

int OutputStream::write(char) {
    throwException<IOException>(throwPosition::unimplementedWriteChar, "Unimplemented");
}

int OutputStream::write(const char* text) {
    return write(text, static_cast<int>(std::strlen(text)));
}

int OutputStream::write(const char*, int) {
    throwException<IOException>(throwPosition::unimplementedWrite, "Unimplemented");
}

FileOutputStream::FileOutputStream(int descriptor) : fd(descriptor) {}

FileOutputStream::FileOutputStream(const char* path, int mode)
    : fd(::open(path, openFlags(mode) | O_CLOEXEC, 0666)) {
    if (fd >= 0) return;
    const int reason = errno;
    closed = true;
    throwException<IOException>(throwPosition::fileStreamOpen,
                                std::string(path) + ": " + std::strerror(reason));
}

FileOutputStream::~FileOutputStream() {
    try {
        close();
    } catch (...) {
        // A destructor cannot report it.
    }
}

void FileOutputStream::close() {
    if (closed) return;
    closed = true;
    if (fd == STDOUT_FILENO || fd == STDERR_FILENO) return;
    const int result = ::close(fd);
    fd = -1;
    if (result != 0) throwException<IOException>(throwPosition::fileStreamClose, std::strerror(errno));
}

int FileOutputStream::write(char c) {
    requireOpen(closed);
    return writeOnce(fd, &c, 1, throwPosition::fileStreamWriteChar);
}

int FileOutputStream::write(const char* data, int length) {
    requireOpen(closed);
    return writeOnce(fd, data, length, throwPosition::fileStreamWrite);
}

StringOutputStream::StringOutputStream(int initialSize) {
    if (initialSize > 0) buffer.reserve(static_cast<std::size_t>(initialSize));
}

StringOutputStream::~StringOutputStream() = default;

void StringOutputStream::close() {
    std::string().swap(buffer);
}

void StringOutputStream::flush() {}

int StringOutputStream::write(char c) {
    buffer += c;
    return 1;
}

int StringOutputStream::write(const char* data, int length) {
    buffer.append(data, static_cast<std::size_t>(length));
    return length;
}

FilterOutputStream::FilterOutputStream(OutputStream& target) : out(&target) {}

FilterOutputStream::~FilterOutputStream() {
    closed = true;
}

void FilterOutputStream::close() {
    closed = true;
}

void FilterOutputStream::flush() {
    out->flush();
}

int FilterOutputStream::write(char c) {
    return out->write(c);
}

int FilterOutputStream::write(const char* data, int length) {
    return out->write(data, length);
}

BufferedOutputStream::BufferedOutputStream(OutputStream& target, int bufferSize)
    : FilterOutputStream(target), count(0), size(std::max(bufferSize, 1)) {
    buf.reset(new char[static_cast<std::size_t>(size)]);
}

BufferedOutputStream::~BufferedOutputStream() {
    try {
        close();
    } catch (...) {
        // A destructor cannot report it.
    }
}

void BufferedOutputStream::close() {
    if (closed) return;
    flush();
    buf.reset();
    closed = true;
}

void BufferedOutputStream::flush() {
    requireOpen(closed);
    if (count == 0) return;
    out->write(buf.get(), count);
    count = 0;
}

int BufferedOutputStream::write(char c) {
    requireOpen(closed);
    if (count == size) flush();  // an earlier flush failed
    buf[static_cast<std::size_t>(count)] = c;
    ++count;
    if (count == size) flush();
    return 1;
}

int BufferedOutputStream::write(const char* data, int length) {
    requireOpen(closed);
    int rest = length;
    if (count > 0 || rest < size) {
        const int fitting = std::min(rest, size - count);
        std::memcpy(buf.get() + count, data, static_cast<std::size_t>(fitting));
        count += fitting;
        data += fitting;
        rest -= fitting;
        if (count == size) flush();
    }
    if (rest >= size) {
        out->write(data, rest);
    } else if (rest > 0) {
        std::memcpy(buf.get(), data, static_cast<std::size_t>(rest));
        count = rest;
    }
    return length;
}

}  // namespace QOR_SPACE
