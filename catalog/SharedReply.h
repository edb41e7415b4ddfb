// A reply of a shared store.
#ifndef KATD_CATALOG_SHAREDREPLY_H
#define KATD_CATALOG_SHAREDREPLY_H

#include <hiredis/hiredis.h>

#include <memory>

namespace catalog {

struct FreeReply {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

}  // namespace catalog

#endif
