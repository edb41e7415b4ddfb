// What the log classes share among themselves.
#ifndef QOR_UTIL_LOGMODULE_H
#define QOR_UTIL_LOGMODULE_H

#include <string>

#include "io/OutputStream.h"

namespace QOR_SPACE {

// The standard error of the process. Logs write to it while they have no file, and report their own failures
// there. Never closed.
extern FileOutputStream _gStdOS;

// Writes the message and a line feed to standard error. A failure there has nowhere to go and is ignored.
void reportFailure(const std::string& message) noexcept;

}  // namespace QOR_SPACE

#endif
