#include "UrlServer/Startup.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/AvailabilityReporter.h"
#include "UrlServer/Globals.h"
#include "UrlServer/LateCall.h"
#include "UrlServer/MessageOutput.h"
#include "UrlServer/ProcessEnd.h"
#include "UrlServer/UrlServer.h"
#include "io/File.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlServer";

constexpr int failed = -1;  // the status of an orderly refusal to start; the shell sees 255

// Makes the C library return large blocks to the system as soon as they are freed. By default its thresholds
// grow with the blocks that are freed: after a reload of large lists, or long requests, much memory stays
// with the process.
void returnFreedMemory() {
#ifdef __GLIBC__
    constexpr int thresholdBytes = 128 * 1024;  // the initial value; setting it keeps it from growing
    mallopt(M_MMAP_THRESHOLD, thresholdBytes);
    mallopt(M_TRIM_THRESHOLD, thresholdBytes);
#endif
}

// The parent may have blocked it.
void unblockAlarm() {
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
}

// A thousand clients need a thousand descriptors; the default soft limit is about that.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

void setHandler(int signalNumber, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(signalNumber, &action, nullptr);
}

bool writePid(int fd) {
    if (ftruncate(fd, 0) != 0) return false;
    char text[32];
    // The zero byte behind the line is part of the file's format.
    const size_t length =
        static_cast<size_t>(std::snprintf(text, sizeof(text), "%ld\n", static_cast<long>(getpid()))) + 1;
    return Utils::writen(fd, text, static_cast<unsigned>(length)) == length;
}

// Takes the lock that keeps a second daemon from the same home; it is held until the process ends. Returns
// the descriptor, or -1 if another process holds the lock. Ends the process on any other failure.
int lockPidFile(const char* home) {
    const std::string path = ConfReader::homePathOf(home) + "data/katd.pid";
    Utils::makeParentDir(path.c_str());
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        ERR_MSG("can't open %s: %s", path.c_str(), std::strerror(errno));
        endProcess(1);
    }
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &whole) != 0) {
        if (errno == EACCES || errno == EAGAIN) {
            close(fd);
            INFO_MSG("katd already running");
            return -1;
        }
        ERR_MSG("can't lock %s: %s", path.c_str(), std::strerror(errno));
        endProcess(1);
    }
    // On a full disk, for instance. The lock is what counts: the daemon serves all the same.
    if (!writePid(fd)) ERR_MSG("can't open %s: %s", path.c_str(), std::strerror(errno));
    return fd;
}

// Sets urlSvr to a usable server; false (reported) when there is none.
bool createServer() {
    try {
        urlSvr = new UrlServer;
    } catch (const std::bad_alloc&) {
        ERR_MSG("fail to new UrlServer");
        return false;
    }
    if (urlSvr->valid) return true;
    ERR_MSG("urlServer is not valid");
    delete urlSvr;
    urlSvr = nullptr;
    return false;
}

}  // namespace

int runDaemon(int argc, char** argv, const char* version, const char* buildTime) {
    umask(0);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // a pipe's reader sees each message at once
    returnFreedMemory();
    unblockAlarm();
    LateCallExecution::reportIfRequested();
    raiseDescriptorLimit();
    std::printf("\n%s\n%s\n", (std::string("Katd Build Time: ") + buildTime).c_str(),
                (std::string("Katd Version: ") + version).c_str());
    printMessages();

    const char* home = std::getenv("KATD_DIR");
    if (!checkEnv(home)) return failed;
    setHandler(SIGPIPE, SIG_IGN);
    setHandler(SIGHUP, SIG_IGN);
    logMessages(home);
    if (!ops.conf.loadConfig(home)) {
        ERR_MSG("fail to load katd config file.");
        return failed;
    }
    if (!parseParameters(argc, argv)) {
        std::printf("usage: %s -h | [http_proxy_config_file]\n", argv[0]);
        return failed;
    }
    const int pidFile = lockPidFile(home);
    if (pidFile < 0) return failed;
    LateCallExecution::prepare(argv, pidFile);
    if (!Utils::checkDNS(ops.conf.getServerAddress())) endForDns();
    pthread_key_create(&ops.instanceKey, nullptr);
    if (!createServer()) return failed;
    setHandler(SIGALRM, alarm_signal_handler2);
    urlSvr->urlManager.reloadUrlList(ops.conf.getUrlsListPath(), ops.conf.getDomainsListPath());
    urlSvr->startCacheMonitor();
    urlSvr->startService();

    // Connections may still be served: the engine is closed, but nothing is freed that they use.
    endWithin(0, endGraceMs + 1000);
    urlSvr->closeEngine();
    return 0;
}

bool checkEnv(const char* home) {
    if (home == nullptr || *home == '\0') {
        ERR_MSG("fail to get environment variable [KATD_DIR]");
        return false;
    }
    const QOR_SPACE::File directory(home);
    if (!directory.isDirectory() || !directory.exists()) {
        ERR_MSG("bad environment variable [KATD_DIR=%s]", home);
        return false;
    }
    const std::string path = ConfReader::homePathOf(home) + ConfReader::settingsFile;
    const QOR_SPACE::File settings(path);
    if (settings.isFile() && settings.exists() && settings.canRead()) return true;
    ERR_MSG("fail to open config file [%s]", path.c_str());
    return false;
}

bool parseParameters(int argc, char** argv) {
    if (argc > 2) {
        ERR_MSG("Too many parameters");
        return false;
    }
    if (argc < 2) return true;
    const char* argument = argv[1];
    if (argument[0] != '-') {
        proxyConf.loadConfig(argument);
        return true;
    }
    if (std::strcmp(argument, "-h") != 0) ERR_MSG("Bad argument [%s]", argument);
    return false;
}

}  // namespace KATD_SPACE
