#include "UrlServer/Startup.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <string>

#include "KatdConf/ConfReader.h"
#include "KatdConf/LogConf.h"
#include "KatdUtil/Utils.h"
#include "UrlServer/ProcessEnd.h"
#include "io/File.h"
#include "util/Log.h"

namespace KATD_SPACE {

UrlServer* urlSvr = nullptr;
HttpProxyConf proxyConf;

namespace {

constexpr const char* logModule = "UrlServer";

constexpr int failed = -1;  // the status of an orderly refusal to start; the shell sees 255

// Started without them, the daemon would get its log or a lock file as descriptor 1 or 2, and messages meant
// for standard error would end up in there.
void occupyStandardDescriptors() {
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR);
    if (fd >= 0) close(fd);
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

// Messages go to the debug log from here on, or stay on standard output when it cannot be opened.
void setUpLog(const char* home) {
    using QOR_SPACE::Log;
    LogConf conf(home);
    conf.load();
    const char* path = conf.getLogFilePath();
    Utils::makeParentDir(path);
    if (!Log::setDebugLogPath(path)) {
        ERR_MSG("setDebugLogPath fail with [%s]", path);
        return;
    }
    Log::setDebugLogEnabled(true);
    Log::setRotationSize(static_cast<unsigned long>(conf.getSizeLimit()));
    Log::setExtensionLimits(conf.getRotationNumber());
    ops.logLevel = conf.getLogLevel();
    ops.output = writeDebugLog;
}

bool writePid(int fd) {
    if (ftruncate(fd, 0) != 0) return false;
    char text[32];
    // The zero byte behind the line is part of the file's format.
    const size_t length =
        static_cast<size_t>(snprintf(text, sizeof(text), "%ld\n", static_cast<long>(getpid()))) + 1;
    return Utils::writen(fd, text, static_cast<unsigned>(length)) == length;
}

// Takes the lock that keeps a second daemon from the same home; held until the process ends. False when
// another process has it; ends the process when it cannot be told.
bool lockPidFile(const char* home) {
    const std::string path = ConfReader::homePathOf(home) + "data/katd.pid";
    Utils::makeParentDir(path.c_str());
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        ERR_MSG("can't open %s: %s", path.c_str(), strerror(errno));
        endProcess(1);
    }
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &whole) != 0) {
        if (errno == EACCES || errno == EAGAIN) {
            close(fd);
            INFO_MSG("katd already running");
            return false;
        }
        ERR_MSG("can't lock %s: %s", path.c_str(), strerror(errno));
        endProcess(1);
    }
    if (!writePid(fd)) {
        // Whoever wants to stop or watch the daemon would read no pid, or a part of one.
        ERR_MSG("can't open %s: %s", path.c_str(), strerror(errno));
        endProcess(1);
    }
    return true;
}

void requireDns() {
    if (Utils::checkDNS(ops.conf.getServerAddress())) return;
    constexpr int endDelaySec = 300;
    Utils::sleepn(endDelaySec);
    ERR_MSG("Cannot get correct dns, katd returned.");
    Utils::writeSysLog("CheckDnsFail");
    endProcess(1);
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
    occupyStandardDescriptors();
    umask(0);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // a pipe's reader sees each message at once
    raiseDescriptorLimit();
    printf("\n%s\n%s\n", (std::string("Katd Build Time: ") + buildTime).c_str(),
           (std::string("Katd Version: ") + version).c_str());
    ops.logLevel = 1;
    ops.output = printLog;

    const char* home = getenv("KATD_DIR");
    if (!checkEnv(home)) return failed;
    setHandler(SIGPIPE, SIG_IGN);
    setHandler(SIGHUP, SIG_IGN);
    setUpLog(home);
    if (!ops.conf.loadConfig(home)) {
        ERR_MSG("fail to load katd config file.");
        return failed;
    }
    if (!parseParameters(argc, argv)) {
        printf("usage: %s -h | [http_proxy_config_file]\n", argv[0]);
        return failed;
    }
    if (!lockPidFile(home)) return failed;
    requireDns();
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
    if (strcmp(argument, "-h") != 0) ERR_MSG("Bad argument [%s]", argument);
    return false;
}

void printLog(const char* text) {
    if (mayBeHeard()) printf("%s", text);
}

void writeDebugLog(const char* text) {
    if (!mayBeHeard()) return;
    try {
        QOR_SPACE::Log::debugLog()->write(std::string(text), QOR_SPACE::Log::DEBUG);
    } catch (const std::bad_alloc&) {
        // The record is lost, as on a full disk; whoever reports goes on. Told where the log tells its own
        // failures.
        constexpr char lost[] = "Out of memory\n";
        const ssize_t ignored = write(STDERR_FILENO, lost, sizeof(lost) - 1);
        static_cast<void>(ignored);
    }
}

}  // namespace KATD_SPACE
