#ifndef KATD_UTILS_H
#define KATD_UTILS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "KatdConf/KatdConf.h"

namespace KATD_SPACE {

// Position of the message that the calling thread emits next. The macros below assign both; each thread has a
// pair of its own, so that a message never carries the position of another thread's.
inline thread_local const char* LOG_FILE = "";  // module name, never null
inline thread_local std::int32_t LOG_LINE = 0;  // source line of the call

// What every module shares. Filled by main before the first other thread starts.
struct Ops {
    // Message level 0 to 3; a control request changes it while others read it.
    std::atomic<std::int32_t> logLevel{0};
    // Takes every message text, from any thread; null: messages are dropped.
    void (*output)(const char*) = nullptr;
    KatdConf conf;                // the daemon settings
    pthread_key_t instanceKey{};  // holds the UrlServerInstance of a connection thread, null elsewhere
};

extern Ops ops;

// Static helpers of the daemon. They keep no state beside `ops`; unless an operation says otherwise, any
// number of threads may call it at once. None throws but checkDNS. Texts are NUL-terminated and belong to the
// caller.
class Utils {
public:
    Utils() = delete;

    // --- Messages (Messages.cpp) ---
    // One message is three calls of ops.output: the tag "[INF][module:line] ", the text cut at 1022
    // characters, and a line feed. Called through INFO_MSG, ERR_MSG and DBG_MSG, which set the position. "%m"
    // shows the caller's errno, which is the same after the call. No allocation.
    static void infoMsg(const char* format, ...)
        __attribute__((format(printf, 1, 2)));  // shown at every level
    static void errMsg(const char* format, ...)
        __attribute__((format(printf, 1, 2)));  // shown from level 1 on
    static void dbgMsg(const char* format, ...)
        __attribute__((format(printf, 1, 2)));  // shown from level 3 on
    // `text`, or "(null)" in its place: "%s" must not be given a null pointer.
    static const char* shown(const char* text) { return text == nullptr ? "(null)" : text; }

    // --- Texts (Text.cpp) ---
    // Blanks are space, tab, carriage return and line feed. What returns a char*, hex2str apart, changes the
    // text in place and returns it.

    // First character that is not a blank, possibly the closing NUL; null for null.
    static const char* FirstChar(const char* s);
    // True when every character is a decimal digit, so also for an empty text. REQUIRES: s is not null.
    static bool isDigit(const char* s);
    // Without leading, trailing, or leading and trailing blanks. Null stays null.
    static char* ltrim(char* s);
    static char* rtrim(char* s);
    static char* trim(char* s);
    // Only the letters A to Z and a to z change. Null stays null.
    static char* toLower(char* s);
    static char* toUpper(char* s);
    // Value 0 to 15 of a hexadecimal digit of either case; 0 for any other character.
    static unsigned char hex2uc(char c);
    // Exactly eight hexadecimal digits, most significant first. False otherwise: with another length `value`
    // is left alone, with a character that is no digit it holds the pairs before it. REQUIRES: neither is
    // null.
    static bool hex2ui(const char* s, unsigned* value);
    // Decodes pairs of hexadecimal digits into a new text, which the caller releases with delete[]. A decoded
    // zero byte ends it early. Null when s is null, empty, of odd length, holds another character, or memory
    // is short.
    static char* hex2str(const char* s);
    // Puts the byte in place of each "%" with two hexadecimal digits, once; what is malformed stays as it is.
    // REQUIRES: s is not null.
    static char* decodeHexString(char* s);
    // Without a leading "http://", "https://" or "ftp://" (lower case only). Null stays null.
    static char* removePTP(char* s);
    // Decimal number in the manner of strtol(3): leading white space and a sign are accepted, the first other
    // character ends it, no digits give 0. Beyond 32 bits it saturates, whatever the width of long.
    // REQUIRES: s is not null.
    static std::int32_t toInt32(const char* s);

    // --- Sockets (Sockets.cpp) ---
    // Unix-domain stream sockets, close-on-exec and blocking. A path has at most 107 characters.

    // Listens on `path`, in place of whatever file was there, creating missing folders. The descriptor, which
    // the caller closes; -1: bad path or no socket, -2: bind(2) failed, -3: listen(2) failed. The file
    // remains at the end.
    static int createLocalTcpService(const char* path, int backlog);
    // A descriptor connected to the service at `path`, which the caller closes; -1 on failure.
    static int connectLocalTcp(const char* path);
    // Reads n bytes, going on after signals. n on success; fewer when the peer closed first; 0 when reading
    // failed (even after a part), for a negative fd, and for n = 0.
    static unsigned readn(int fd, void* buf, unsigned n);
    // The same for a buf that holds `have` bytes already and may be filled up to `room`: reads until there
    // are at least n, taking more where the kernel has more at once. How many buf holds then: n or more on
    // success.
    static unsigned readAtLeast(int fd, void* buf, unsigned have, unsigned n, unsigned room);
    // Writes n bytes, going on after signals. n on success, 0 on failure (a part may be out then: *out tells
    // how many bytes are, unless it is null). REQUIRES: SIGPIPE is ignored.
    static unsigned writen(int fd, const char* buf, unsigned n, unsigned* out = nullptr);

    // --- Host and file system (Host.cpp) ---

    // True when the name resolves; every "%d" in it stands for "1". Null: the classification service's usual
    // name. The resolver is not reentrant (gethostbyname(3)): for the main thread at start-up.
    static bool checkDNS(const char* host);
    // Creates the missing folders above the last "/" of `path`. Failures show when the path is used.
    // REQUIRES: path is not null.
    static void makeParentDir(const char* path);
    // Sleeps that many seconds and goes on after signals, each of which may take off up to a second (sleep(3)
    // tells whole seconds). Returns at once for 0 and less.
    static void sleepn(int seconds);
    // True while the local time is at that minute of that hour, or of any hour for -1. Minute -1 never comes.
    static bool checkTime(int hour, int minute);
    // Runs the program named by the environment variable WRITE_SYSLOG with `text` as its only argument and waits for
    // its end, whatever its status; after sysLogLimitSec seconds the program and what it has started are killed. Does
    // nothing if the variable or text is missing or the variable does not name a regular file. `started`, unless
    // null, is called right before the program is started: until then a message may have to wait for the log.
    static constexpr int sysLogLimitSec = 60;
    static void writeSysLog(const char* text, void (*started)());
    static void writeSysLog(const char* text) { writeSysLog(text, nullptr); }
};

}  // namespace KATD_SPACE

// One call site of a message: each source file names its module in a constant `logModule`. The arguments are
// evaluated once and must not emit messages themselves. __extension__ lets "%m" pass where only ISO C formats
// are wanted.
#define KATD_MESSAGE(function, ...)                                                       \
    (__extension__(::KATD_SPACE::LOG_FILE = logModule, ::KATD_SPACE::LOG_LINE = __LINE__, \
                   ::KATD_SPACE::Utils::function(__VA_ARGS__)))
#define INFO_MSG(...) KATD_MESSAGE(infoMsg, __VA_ARGS__)
#define ERR_MSG(...) KATD_MESSAGE(errMsg, __VA_ARGS__)
#define DBG_MSG(...) KATD_MESSAGE(dbgMsg, __VA_ARGS__)

#endif
