#ifndef KATD_UTILS_H
#define KATD_UTILS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "KatdConf/KatdConf.h"

namespace KATD_SPACE {

// Source position of the calling thread's next message, set by the macros below.
inline thread_local const char* LOG_FILE = "";  // module name, never null
inline thread_local std::int32_t LOG_LINE = 0;  // source line of the call

// Shared by all modules. main fills it before it starts other threads.
struct Ops {
    // Message level 0 to 3; changed by a control request while other threads read it.
    std::atomic<std::int32_t> logLevel{0};
    // Called with every piece of a message, by any thread; null: messages are dropped.
    void (*output)(const char*) = nullptr;
    KatdConf conf;                // the daemon settings
    pthread_key_t instanceKey{};  // holds the UrlServerInstance of a connection thread, null elsewhere
};

extern Ops ops;

// Static helpers of the daemon. They have no state but `ops` and are thread-safe unless stated otherwise.
// Only checkDNS throws. Strings are NUL-terminated and owned by the caller.
class Utils {
public:
    Utils() = delete;

    // --- Messages (Messages.cpp) ---
    // Call them through INFO_MSG, ERR_MSG and DBG_MSG, which set the position. One message makes three calls
    // of ops.output: the tag "[INF][module:line] ", the text, cut at 1022 characters, and a line feed. "%m"
    // shows the caller's errno, which is preserved. They do not allocate memory.
    static void infoMsg(const char* format, ...)
        __attribute__((format(printf, 1, 2)));  // shown at every level
    static void errMsg(const char* format, ...)
        __attribute__((format(printf, 1, 2)));  // shown at level 1 and above
    static void dbgMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));  // shown at level 3
    static bool showsDebug();  // whether dbgMsg shows its messages
    // `text`, or "(null)" for a null pointer, which "%s" does not accept.
    static const char* shown(const char* text) { return text == nullptr ? "(null)" : text; }

    // --- Strings (Text.cpp) ---
    // Blanks are space, tab, carriage return and line feed. Functions that return char*, except hex2str,
    // change the string in place and return it; null stays null.

    // The first character that is not a blank, possibly the closing NUL; null for null.
    static const char* FirstChar(const char* s);
    // True if every character is a decimal digit, so also for "". REQUIRES: s is not null.
    static bool isDigit(const char* s);
    // Remove leading, trailing, and leading and trailing blanks.
    static char* ltrim(char* s);
    static char* rtrim(char* s);
    static char* trim(char* s);
    // Change ASCII letters only.
    static char* toLower(char* s);
    static char* toUpper(char* s);
    // The value of a hexadecimal digit; 0 for any other character.
    static unsigned char hex2uc(char c);
    // Stores the number of exactly eight hexadecimal digits. Returns false for another length, with `value`
    // unchanged, or for another character, with the pairs before it in `value`. REQUIRES: neither is null.
    static bool hex2ui(const char* s, unsigned* value);
    // Decodes pairs of hexadecimal digits to a new string, which the caller frees with delete[]. A decoded
    // NUL ends it. Returns null if s is null, empty, of odd length or has another character, or without
    // memory.
    static char* hex2str(const char* s);
    // Decodes each "%" with two hexadecimal digits once; malformed escapes stay. REQUIRES: s is not null.
    static char* decodeHexString(char* s);
    // Removes a leading "http://", "https://" or "ftp://" in lower case.
    static char* removePTP(char* s);
    // As strtol(3) with base 10, saturated at 32 bits whatever the width of long. REQUIRES: s is not null.
    static std::int32_t toInt32(const char* s);

    // --- Sockets (Sockets.cpp) ---
    // Unix-domain stream sockets, close-on-exec and blocking. A path has at most 107 characters.

    // Listens on `path`; removes an existing file and creates missing directories. Returns a descriptor,
    // which the caller closes (the file remains); -1: bad path or no socket, -2: bind(2) failed, -3:
    // listen(2) failed.
    static int createLocalTcpService(const char* path, int backlog);
    // Returns a descriptor connected to the service at `path`, which the caller closes, or -1.
    static int connectLocalTcp(const char* path);
    // Reads n bytes, also if signals interrupt it. Returns n; fewer if the peer closed the connection; 0
    // after a read error (even if a part was read), for a negative fd and for n = 0.
    static unsigned readn(int fd, void* buf, unsigned n);
    // The same for a buffer of `size` bytes, `have` of which are filled: reads until it holds at least n
    // bytes, and more if the kernel has more. Returns the number of bytes in buf, at least n on success.
    static unsigned readAtLeast(int fd, void* buf, unsigned have, unsigned n, unsigned size);
    // Writes n bytes, also if signals interrupt it. Returns n, or 0 on failure. Unless null, *out is set to
    // the number of bytes written. REQUIRES: SIGPIPE is ignored.
    static unsigned writen(int fd, const char* buf, unsigned n, unsigned* out = nullptr);

    // --- Host and file system (Host.cpp) ---

    // True if the name, with "1" for every "%d", can be resolved. Null: the classification service's default
    // name. Not thread-safe (gethostbyname(3)): for the main thread at start-up.
    static bool checkDNS(const char* host);
    // Creates the missing directories above the last "/" of `path`, without reporting failures. REQUIRES:
    // path is not null.
    static void makeParentDir(const char* path);
    // Sleeps, also if signals interrupt it; each may shorten the sleep by up to a second (sleep(3) returns
    // whole seconds). Returns at once if seconds <= 0.
    static void sleepn(int seconds);
    // Milliseconds on the monotonic clock. Async-signal-safe.
    static std::int64_t nowMs();
    // True during that minute of that hour, or of any hour for -1, in local time. Always false for minute -1.
    static bool checkTime(int hour, int minute);
    // Runs the program named by the environment variable WRITE_SYSLOG with `text` as its only argument and
    // waits for its end, whatever its status; after sysLogLimitSec seconds the program and what it has
    // started are killed. Does nothing if the variable or text is missing or the variable does not name a
    // regular file. `started`, unless null, is called right before the program is started: until then a
    // message may have to wait for the log.
    static constexpr int sysLogLimitSec = 60;
    static void writeSysLog(const char* text, void (*started)());
    static void writeSysLog(const char* text) { writeSysLog(text, nullptr); }
};

}  // namespace KATD_SPACE

// Each source file that emits messages names its module in a constant `logModule`. The arguments are
// evaluated once and must not emit messages. __extension__ permits "%m" with -Wpedantic.
#define KATD_MESSAGE(function, ...)                                                       \
    (__extension__(::KATD_SPACE::LOG_FILE = logModule, ::KATD_SPACE::LOG_LINE = __LINE__, \
                   ::KATD_SPACE::Utils::function(__VA_ARGS__)))
#define INFO_MSG(...) KATD_MESSAGE(infoMsg, __VA_ARGS__)
#define ERR_MSG(...) KATD_MESSAGE(errMsg, __VA_ARGS__)
#define DBG_MSG(...) KATD_MESSAGE(dbgMsg, __VA_ARGS__)

#endif
