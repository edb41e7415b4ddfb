// A reply of a shared store.
#ifndef KATD_CATALOG_SHAREDREPLY_H
#define KATD_CATALOG_SHAREDREPLY_H

#include <hiredis/hiredis.h>

#include <memory>
#include <string_view>

namespace catalog {

struct FreeReply {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

// Empty unless the reply is a string.
inline std::string_view textOf(const redisReply& reply) {
    return reply.type == REDIS_REPLY_STRING ? std::string_view(reply.str, reply.len) : std::string_view();
}

}  // namespace catalog

#endif
