// The objects that all threads of the service share. Written by the main thread only, before the other
// threads start.
#ifndef KATD_GLOBALS_H
#define KATD_GLOBALS_H

#include "KatdConf/HttpProxyConf.h"

namespace KATD_SPACE {

class UrlServer;

extern UrlServer* urlSvr;  // the one server; null before it exists
extern HttpProxyConf
    proxyConf;  // the engine's proxy; not valid unless the command line names a settings file

}  // namespace KATD_SPACE

#endif
