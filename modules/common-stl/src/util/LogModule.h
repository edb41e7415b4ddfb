// Shared by the log classes.
#ifndef QOR_UTIL_LOGMODULE_H
#define QOR_UTIL_LOGMODULE_H

#include <string>

#include "io/OutputStream.h"

namespace QOR_SPACE {

// Standard error. Logs write to it while they have no file, and report their failures there. Never closed.
extern FileOutputStream _gStdOS;

// Writes the message and a line feed to standard error, ignoring a failure.
void reportFailure(const std::string& message) noexcept;

}  // namespace QOR_SPACE

#endif
