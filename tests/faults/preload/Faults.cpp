// Preloaded into katd by tests: makes chosen calls of a function fail.
//
//   FAULT_CALL    the functions, separated by commas; their calls are counted together
//   FAULT_ERRNO   the error number, or "short": one half is read or written. With ENOSPC, write(2) on anything but a
//                 file, or on standard output and error, passes uncounted; with "short", a call for one byte does
//   FAULT_REPORT  the file with the FaultReport, which says which calls fail
//
// Intercepts the calls of katd and the engine; for malloc those of the C library as well. The functions have the
// names under which katd calls them: this file is compiled with the same sizes of offsets and times, which the C
// library's headers turn into names.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FaultReport.h"

using katd_test::FaultReport;

#if defined(__i386__)
#define TIME64(name) "__" name "_time64"
#else
#define TIME64(name) name
#endif

// The intercepted function: the C library's, or that of a library preloaded after this one.
#define NEXT(function, symbol) reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, symbol))

namespace {

FaultReport* report = nullptr;  // null: nothing is counted
char chosen[256];               // ",open,read,"
bool isShort = false;
int faultErrno = 0;

// Runs before main, alone.
__attribute__((constructor)) void setUp() {
    const char* calls = getenv("FAULT_CALL");
    const char* error = getenv("FAULT_ERRNO");
    const char* path = getenv("FAULT_REPORT");
    if (calls == nullptr || error == nullptr || path == nullptr) return;
    snprintf(chosen, sizeof(chosen), ",%s,", calls);
    isShort = strcmp(error, "short") == 0;
    faultErrno = atoi(error);
    static const auto realOpen = NEXT(open, "open64");
    static const auto realClose = NEXT(close, "close");
    const int fd = realOpen(path, O_RDWR | O_CLOEXEC);
    void* shared = mmap(nullptr, sizeof(FaultReport), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    realClose(fd);
    if (shared != MAP_FAILED) report = static_cast<FaultReport*>(shared);
}

// Counts a call of the function, given as ",NAME,". Returns whether it is one to fail.
bool due(const char* name) {
    if (report == nullptr || strstr(chosen, name) == nullptr) return false;
    const std::uint32_t number = report->calls.fetch_add(1) + 1;
    if (number < report->first || number > report->last) return false;
    ++report->failed;
    return true;
}

// The same, with errno set for the failure.
bool fails(const char* name) {
    if (!due(name)) return false;
    errno = faultErrno;
    return true;
}

bool isFile(int fd) {
    static const auto realFstat = NEXT(fstat, TIME64("fstat64"));
    struct stat status {};
    return realFstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    static const auto real = NEXT(open, "open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(",open,") ? -1 : real(path, flags, mode);
}

int __open64_2(const char* path, int flags) {
    return open(path, flags);
}

ssize_t read(int fd, void* buffer, size_t size) {
    static const auto real = NEXT(read, "read");
    if (isShort) return real(fd, buffer, size > 1 && due(",read,") ? size / 2 : size);
    return fails(",read,") ? -1 : real(fd, buffer, size);
}

ssize_t __read_chk(int fd, void* buffer, size_t size, size_t) {
    return read(fd, buffer, size);
}

ssize_t write(int fd, const void* data, size_t size) {
    static const auto real = NEXT(write, "write");
    if (isShort) return real(fd, data, size > 1 && due(",write,") ? size / 2 : size);
    if (faultErrno == ENOSPC && (fd <= STDERR_FILENO || !isFile(fd))) return real(fd, data, size);
    return fails(",write,") ? -1 : real(fd, data, size);
}

// The kernel closes the descriptor whatever it reports: close(2).
int close(int fd) {
    static const auto real = NEXT(close, "close");
    const int result = real(fd);
    return fails(",close,") ? -1 : result;
}

// A function that returns -1 when it fails; "specifier" as the C library declares it.
#define FAILING(name, symbol, parameters, arguments, specifier)  \
    int name parameters specifier {                              \
        static const auto real = NEXT(name, symbol);             \
        return fails("," #name ",") ? -1 : real arguments;       \
    }
FAILING(stat, TIME64("stat64"), (const char* path, struct stat* status), (path, status), noexcept)
FAILING(fstat, TIME64("fstat64"), (int fd, struct stat* status), (fd, status), noexcept)
FAILING(lstat, TIME64("lstat64"), (const char* path, struct stat* status), (path, status), noexcept)
FAILING(access, "access", (const char* path, int mode), (path, mode), noexcept)
FAILING(rename, "rename", (const char* from, const char* to), (from, to), noexcept)
FAILING(unlink, "unlink", (const char* path), (path), noexcept)
FAILING(mkdir, "mkdir", (const char* path, mode_t mode), (path, mode), noexcept)
FAILING(ftruncate, "ftruncate64", (int fd, off_t length), (fd, length), noexcept)
FAILING(fsync, "fsync", (int fd), (fd), )
FAILING(socket, "socket", (int domain, int type, int protocol), (domain, type, protocol), noexcept)
FAILING(bind, "bind", (int fd, const sockaddr* address, socklen_t length), (fd, address, length), noexcept)
FAILING(listen, "listen", (int fd, int backlog), (fd, backlog), noexcept)
// A client that waits stays in the queue.
FAILING(accept4, "accept4", (int fd, sockaddr* address, socklen_t* length, int flags), (fd, address, length, flags), )

// Counts requests for a lock only.
int fcntl(int fd, int command, ...) {
    static const auto real = NEXT(fcntl, TIME64("fcntl"));
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const bool locks = (command == F_SETLK || command == F_SETLKW) &&
                       static_cast<const struct flock*>(argument)->l_type != F_UNLCK;
    return locks && fails(",fcntl,") ? -1 : real(fd, command, argument);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static const auto real = NEXT(pthread_create, "pthread_create");
    return due(",pthread_create,") ? faultErrno : real(thread, attributes, body, argument);
}

FILE* fopen(const char* path, const char* mode) {
    static const auto real = NEXT(fopen, "fopen64");
    return fails(",fopen,") ? nullptr : real(path, mode);
}

char* fgets(char* text, int size, FILE* stream) {
    static const auto real = NEXT(fgets, "fgets");
    if (!fails(",fgets,")) return real(text, size, stream);
    stream->_flags |= _IO_ERR_SEEN;
    return nullptr;
}

char* __fgets_chk(char* text, size_t, int size, FILE* stream) {
    return fgets(text, size, stream);
}

size_t fread(void* data, size_t size, size_t count, FILE* stream) {
    static const auto real = NEXT(fread, "fread");
    if (!fails(",fread,")) return real(data, size, count, stream);
    stream->_flags |= _IO_ERR_SEEN;
    return 0;
}

size_t __fread_chk(void* data, size_t, size_t size, size_t count, FILE* stream) {
    return fread(data, size, count, stream);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* stream) {
    static const auto real = NEXT(fwrite, "fwrite");
    if (!fails(",fwrite,")) return real(data, size, count, stream);
    stream->_flags |= _IO_ERR_SEEN;
    return real(data, size, count / 2, stream);
}

#ifdef FAULT_MALLOC
void* __libc_malloc(size_t size);

static thread_local bool isResolving = false;

void* malloc(size_t size) noexcept {
    return !isResolving && fails(",malloc,") ? nullptr : __libc_malloc(size);
}

// The C library's resolver aborts when it runs out of memory, whatever its caller does.
hostent* gethostbyname(const char* name) {
    static const auto real = NEXT(gethostbyname, "gethostbyname");
    isResolving = true;
    hostent* const host = real(name);
    isResolving = false;
    return host;
}
#endif
}
