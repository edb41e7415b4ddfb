#ifndef KATD_STARTUP_H
#define KATD_STARTUP_H

namespace KATD_SPACE {

// Starts the daemon and serves; returns the exit status of the process. version and buildTime are shown in
// the banner. Main thread, once. Throws std::bad_alloc if there is not enough memory to start.
int runDaemon(int argc, char** argv, const char* version, const char* buildTime);

// Whether home (may be null) is a directory that holds a readable settings file. Reports what is wrong.
bool checkEnv(const char* home);

// Loads the proxy settings that the command line names. False (reported, except for "-h"): the usage is to be
// shown.
bool parseParameters(int argc, char** argv);

}  // namespace KATD_SPACE

#endif
