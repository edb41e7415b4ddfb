#include "UrlServer/Globals.h"

namespace KATD_SPACE {

UrlServer* urlSvr = nullptr;
HttpProxyConf proxyConf;

}  // namespace KATD_SPACE
