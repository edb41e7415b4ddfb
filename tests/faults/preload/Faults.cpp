// Preloaded into katd by tests: makes chosen calls of a function fail.
//
//   FAULT_CALL    the functions, by their plain names with commas between; calls of all of them are counted
//                 together
//   FAULT_ERRNO   the error number, or "short": one half is read or written. With ENOSPC, calls of write on
//                 anything but files, and on the terminal's, pass uncounted; with "short", those for one byte
//   FAULT_REPORT  the file with the FaultReport, which says which calls fail
//
// Only calls from katd and the engine's library come through here, for malloc those of the C library as well.
// The functions have the names under which katd calls them: this file is compiled with the same sizes of
// offsets and times, which the C library's headers turn into names.
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
#define FCNTL "__fcntl_time64"
#define STAT "__stat64_time64"
#define FSTAT "__fstat64_time64"
#define LSTAT "__lstat64_time64"
#else
#define FCNTL "fcntl64"
#define STAT "stat64"
#define FSTAT "fstat64"
#define LSTAT "lstat64"
#endif

// The function behind this one: the C library's, or that of a library preloaded after this one.
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

// Counts a call of the function, whose name stands between commas, and says whether it is one to fail.
bool due(const char* name) {
    if (report == nullptr || strstr(chosen, name) == nullptr) return false;
    const std::uint32_t number = report->calls.fetch_add(1) + 1;
    if (number < report->first || number > report->last) return false;
    ++report->failed;
    return true;
}

// The same, setting errno for the failure.
bool fails(const char* name) {
    if (!due(name)) return false;
    errno = faultErrno;
    return true;
}

bool isFile(int fd) {
    static const auto realFstat = NEXT(fstat, FSTAT);
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

// The kernel gives the descriptor back, whatever it reports: close(2).
int close(int fd) {
    static const auto real = NEXT(close, "close");
    const int result = real(fd);
    return fails(",close,") ? -1 : result;
}

int stat(const char* path, struct stat* status) noexcept {
    static const auto real = NEXT(stat, STAT);
    return fails(",stat,") ? -1 : real(path, status);
}

int fstat(int fd, struct stat* status) noexcept {
    static const auto real = NEXT(fstat, FSTAT);
    return fails(",fstat,") ? -1 : real(fd, status);
}

int lstat(const char* path, struct stat* status) noexcept {
    static const auto real = NEXT(lstat, LSTAT);
    return fails(",lstat,") ? -1 : real(path, status);
}

int access(const char* path, int mode) noexcept {
    static const auto real = NEXT(access, "access");
    return fails(",access,") ? -1 : real(path, mode);
}

int rename(const char* from, const char* to) noexcept {
    static const auto real = NEXT(rename, "rename");
    return fails(",rename,") ? -1 : real(from, to);
}

int unlink(const char* path) noexcept {
    static const auto real = NEXT(unlink, "unlink");
    return fails(",unlink,") ? -1 : real(path);
}

int mkdir(const char* path, mode_t mode) noexcept {
    static const auto real = NEXT(mkdir, "mkdir");
    return fails(",mkdir,") ? -1 : real(path, mode);
}

// Only requests for a lock count.
int fcntl(int fd, int command, ...) {
    static const auto real = NEXT(fcntl, FCNTL);
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    const bool locks = (command == F_SETLK || command == F_SETLKW) &&
                       static_cast<const struct flock*>(argument)->l_type != F_UNLCK;
    return locks && fails(",fcntl,") ? -1 : real(fd, command, argument);
}

int ftruncate(int fd, off_t length) noexcept {
    static const auto real = NEXT(ftruncate, "ftruncate64");
    return fails(",ftruncate,") ? -1 : real(fd, length);
}

int fsync(int fd) {
    static const auto real = NEXT(fsync, "fsync");
    return fails(",fsync,") ? -1 : real(fd);
}

int socket(int domain, int type, int protocol) noexcept {
    static const auto real = NEXT(socket, "socket");
    return fails(",socket,") ? -1 : real(domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    static const auto real = NEXT(bind, "bind");
    return fails(",bind,") ? -1 : real(fd, address, length);
}

int listen(int fd, int backlog) noexcept {
    static const auto real = NEXT(listen, "listen");
    return fails(",listen,") ? -1 : real(fd, backlog);
}

// A client that waits stays in the queue when descriptors are used up.
int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    static const auto real = NEXT(accept4, "accept4");
    return fails(",accept4,") ? -1 : real(fd, address, length, flags);
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

// The C library's look-up of a name aborts for lack of memory; nobody who calls it can help that.
hostent* gethostbyname(const char* name) {
    static const auto real = NEXT(gethostbyname, "gethostbyname");
    isResolving = true;
    hostent* const host = real(name);
    isResolving = false;
    return host;
}
#endif
}
