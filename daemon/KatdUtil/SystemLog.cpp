#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>

#include "KatdUtil/Utils.h"
#include "io/File.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdUtil";

bool isRegularFile(const char* path) {
    try {
        const QOR_SPACE::File file(path);
        return file.isFile() && file.exists();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Starts argv[0] as a process that has none of katd's ignored or blocked signals, which would outlive
// exec(2). Result and *child as posix_spawn(3).
int spawnWithFreshSignals(pid_t* child, const char* const* argv) {
    posix_spawnattr_t attributes;
    int error = posix_spawnattr_init(&attributes);
    if (error != 0) return error;
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    // posix_spawn(3) takes the words as char* for the sake of old callers and leaves them alone.
    error = posix_spawn(child, argv[0], nullptr, &attributes, const_cast<char* const*>(argv), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

}  // namespace

void Utils::writeSysLog(const char* text, void (*started)()) {
    const char* program = std::getenv("WRITE_SYSLOG");
    if (program == nullptr || text == nullptr || !isRegularFile(program)) return;
    DBG_MSG("write sys log with [%s %s]", program, text);
    if (started != nullptr) started();

    const char* const direct[] = {program, text, nullptr};
    const char* const throughShell[] = {"/bin/sh", program, text, nullptr};
    pid_t child = -1;
    int error = spawnWithFreshSignals(&child, direct);
    // A script without an interpreter line is none for the kernel, yet any shell would run it.
    if (error == ENOEXEC) error = spawnWithFreshSignals(&child, throughShell);
    if (error != 0) return;
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace KATD_SPACE
