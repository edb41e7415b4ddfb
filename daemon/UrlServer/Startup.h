// From main() to the service loop, and the state of the process that every module reaches.
#ifndef KATD_URLSERVER_STARTUP_H
#define KATD_URLSERVER_STARTUP_H

#include "KatdConf/HttpProxyConf.h"
#include "UrlServer/UrlServer.h"

namespace KATD_SPACE {

// The proxy of the engine; stays not valid unless the command line names a settings file. Read-only after
// start-up.
extern HttpProxyConf proxyConf;

// Starts the daemon and serves; returns the process's exit status. version and buildTime are shown in the
// banner. Main thread, once. Throws std::bad_alloc when there is no memory to start with.
int runDaemon(int argc, char** argv, const char* version, const char* buildTime);

// Whether home (may be null) is a directory that holds a readable settings file; reports what it is not.
bool checkEnv(const char* home);

// Loads the proxy settings that the command line names. False (reported, but for "-h"): the usage is to be
// shown.
bool parseParameters(int argc, char** argv);

}  // namespace KATD_SPACE

#endif
