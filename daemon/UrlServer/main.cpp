#include <cstdio>
#include <new>

#include "BuildInfo.h"
#include "UrlServer/ProcessEnd.h"
#include "UrlServer/Startup.h"

int main(int argc, char** argv) {
    try {
        KATD_SPACE::endProcess(KATD_SPACE::runDaemon(argc, argv, KATD_VERSION, KATD_BUILD_TIME));
    } catch (const std::bad_alloc&) {
        std::fputs("katd: not enough memory to start\n", stderr);
        KATD_SPACE::endProcess(1);
    }
}
