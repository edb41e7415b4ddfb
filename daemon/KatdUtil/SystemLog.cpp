#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
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

// Starts argv[0] in a process group of its own and without katd's ignored or blocked signals, which exec(2)
// would keep. Result and *child as posix_spawn(3).
int spawnWithFreshSignals(pid_t* child, const char* const* argv) {
    posix_spawnattr_t attributes;
    int error = posix_spawnattr_init(&attributes);
    if (error != 0) return error;
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    // posix_spawn(3) does not change the strings.
    error = posix_spawn(child, argv[0], nullptr, &attributes, const_cast<char* const*>(argv), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

// Waits for the end of the child; kills it, with the processes that it has started, when its time is over.
void awaitEnd(pid_t child, int limitSec) {
    const timespec step{0, 10 * 1000000L};
    const std::int64_t endMs = Utils::nowMs() + limitSec * std::int64_t{1000};
    for (;;) {
        const pid_t ended = waitpid(child, nullptr, WNOHANG);
        if (ended != 0 && !(ended < 0 && errno == EINTR)) return;
        if (Utils::nowMs() >= endMs) break;
        nanosleep(&step, nullptr);
    }
    kill(-child, SIGKILL);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
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
    // The kernel does not run a script without an interpreter line, but a shell does.
    if (error == ENOEXEC) error = spawnWithFreshSignals(&child, throughShell);
    if (error == 0) awaitEnd(child, sysLogLimitSec);
}

}  // namespace KATD_SPACE
