/* The wire format between a client and katd, on the stream socket that the setting data_conn_string names.
 * For C and C++; libkatclient and the daemon share it.
 *
 * Request: a signed 32-bit length, then that many bytes, which are a prefix of four bytes and a body. Reply:
 * a header, then `length` bytes, one category number each. A refused request gets no reply: katd closes the
 * connection. Both ends run on one machine, so all integers have its byte order.
 */
#ifndef KATD_URLSERVER_PROTOCOL_H
#define KATD_URLSERVER_PROTOCOL_H

#include <stdint.h>

#define KATD_MAX_MESSAGE 16777216 /* 16 MiB: largest length of a request */

/* Prefixes, on the wire without a terminator. */
#define KATD_PREFIX_LENGTH 4
#define KATD_PREFIX_QUERY "url0"         /* body: a URL; one attempt */
#define KATD_PREFIX_RETRIED_QUERY "url1" /* body: a URL; asked again while its categories are Unknown */
#define KATD_PREFIX_CONTROL "ctl:"       /* body: one of the keywords below */

/* Control requests: the keyword, then its operands as raw unsigned 32-bit integers. */
#define KATD_CONTROL_LOG_LEVEL "log_level=" /* one operand: 0 info, 1 error, 2 warning, 3 debug */
#define KATD_CONTROL_TIMEOUT "timeout="     /* two operands: retry times, retry interval in milliseconds */
#define KATD_CONTROL_SAVE_CACHE "save_cache"
#define KATD_CONTROL_URLS_STAT "urls_stat"
#define KATD_CONTROL_RELOAD "assis_reload"

#define KATD_MAX_CATEGORIES 256 /* bytes after the header of a reply, at most */

struct katd_reply_header {
    int32_t result;     /* always 0 */
    uint32_t length;    /* category bytes that follow, 0 to KATD_MAX_CATEGORIES */
    uint8_t matched;    /* 1: the answer is definitive (length 0: known to have no category); 0: no answer */
    uint8_t padding[3]; /* zero */
};

#ifdef __cplusplus
namespace KATD_SPACE {

constexpr unsigned prefixLength = KATD_PREFIX_LENGTH;
constexpr char prefixQuery[] = KATD_PREFIX_QUERY;
constexpr char prefixRetriedQuery[] = KATD_PREFIX_RETRIED_QUERY;
constexpr char prefixControl[] = KATD_PREFIX_CONTROL;
constexpr char controlLogLevel[] = KATD_CONTROL_LOG_LEVEL;
constexpr char controlTimeout[] = KATD_CONTROL_TIMEOUT;
constexpr char controlSaveCache[] = KATD_CONTROL_SAVE_CACHE;
constexpr char controlUrlsStat[] = KATD_CONTROL_URLS_STAT;
constexpr char controlReload[] = KATD_CONTROL_RELOAD;
constexpr unsigned maxCategories = KATD_MAX_CATEGORIES;

using ReplyHeader = katd_reply_header;
static_assert(sizeof(ReplyHeader) == 12, "the reply header is 12 bytes on the wire");

}  // namespace KATD_SPACE
#endif

#endif
