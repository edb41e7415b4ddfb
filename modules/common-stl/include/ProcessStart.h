// What every program does before anything else.
#ifndef QOR_PROCESS_START_H
#define QOR_PROCESS_START_H

#include <fcntl.h>

#include <cerrno>
#include <csignal>

namespace QOR_SPACE {

// Makes a process safe to start from any parent. Call it first in main, before any other descriptor is opened and
// before any other thread runs.
//
// - Opens /dev/null for each of the descriptors 0 to 2 that is closed. Otherwise the next open() would return one of
//   them (open(2): the lowest-numbered descriptor not open), and output for the terminal would go into that file.
//   Standard input is opened for writing and standard output for reading: their use fails (EBADF), so that a program
//   whose output is lost does not report success.
// - Ignores SIGXFSZ, so that a write beyond the file size limit fails with EFBIG instead of ending the process.
//
// Returns false if /dev/null cannot be opened; errno says why.
inline bool prepareProcess() {
    std::signal(SIGXFSZ, SIG_IGN);
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
        const int flags = descriptor == 0 ? O_WRONLY : descriptor == 1 ? O_RDONLY : O_RDWR;
        if (::open("/dev/null", flags) != descriptor) return false;
    }
    return true;
}

}  // namespace QOR_SPACE

#endif
