#include "Trace.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Text.h"

namespace asapsdk {

void trace(const char* function, std::string_view argument, std::string_view result) {
    const char* const path = std::getenv("ASAPSDK_TRACE");
    if (path == nullptr) return;
    const std::string line = std::string(function) + '\t' + std::to_string(syscall(SYS_gettid)) + '\t' +
                             escaped(argument) + '\t' + escaped(result) + '\n';
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return;
    // One write in append mode is atomic on a file: write(2).
    if (write(fd, line.data(), line.size()) < 0) std::perror("asapsdk: trace");
    close(fd);
}

void traceHandle(const char* function, const void* handle, std::string_view result) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", handle);
    trace(function, handle == nullptr ? "null" : text, result);
}

}  // namespace asapsdk
