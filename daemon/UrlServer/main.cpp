#include <cstdio>

#include "BuildInfo.h"
#include "ProcessStart.h"
#include "UrlServer/ProcessEnd.h"
#include "UrlServer/Startup.h"

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) KATD_SPACE::endProcess(1);
    try {
        KATD_SPACE::endProcess(KATD_SPACE::runDaemon(argc, argv, KATD_VERSION, KATD_BUILD_TIME));
    } catch (...) {
        // Only std::bad_alloc and the library's OutOfMemoryException are thrown.
        std::fputs("katd: not enough memory to start\n", stderr);
        KATD_SPACE::endProcess(1);
    }
}
