#pragma once

#include <fcntl.h>

#include "support/Home.h"

// Locks the log as another process would, until the descriptor is closed.
inline int holdLog(const katd_test::Home& home) {
    const int lockFile = open(("/tmp/" + home.logName() + ".lock").c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    EXPECT_EQ(0, fcntl(lockFile, F_SETLKW, &whole));
    return lockFile;
}
