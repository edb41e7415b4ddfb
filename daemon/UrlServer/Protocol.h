// The wire format between a client and katd, on the stream socket named by the setting data_conn_string.
//
// Request: a signed 32-bit length, then that many bytes: four bytes of prefix and the body. All integers are
// in the machine's byte order, both ends being on one machine. Reply: a ReplyHeader, then header.length
// bytes, each one category number. A request that is refused gets no reply: the connection is closed.
#ifndef KATD_URLSERVER_PROTOCOL_H
#define KATD_URLSERVER_PROTOCOL_H

#include <cstdint>

namespace KATD_SPACE {

// The four bytes that open a message, without a terminator.
constexpr unsigned prefixLength = 4;
constexpr char prefixQuery[] = "url0";         // body: a URL; one attempt
constexpr char prefixRetriedQuery[] = "url1";  // body: a URL; asked again while its categories are Unknown
constexpr char prefixControl[] = "ctl:";       // body: one of the keywords below

// Control requests: the keyword, then its operands as raw unsigned 32-bit integers.
constexpr char controlLogLevel[] = "log_level=";  // one operand: 0 info, 1 error, 2 warning, 3 debug
constexpr char controlTimeout[] = "timeout=";     // two operands: retry times, retry interval in milliseconds
constexpr char controlSaveCache[] = "save_cache";  // no operand, like the next two
constexpr char controlUrlsStat[] = "urls_stat";
constexpr char controlReload[] = "assis_reload";

constexpr unsigned maxCategories = 256;  // a reply carries at most this many bytes after its header

struct ReplyHeader {
    std::int32_t result;   // always 0
    std::uint32_t length;  // category bytes that follow, 0 to maxCategories
    std::uint8_t matched;  // 1: the answer is definitive (length 0: known to have no category); 0: no answer
    std::uint8_t padding[3];  // zero
};
static_assert(sizeof(ReplyHeader) == 12, "the reply header is 12 bytes on the wire");

}  // namespace KATD_SPACE

#endif
