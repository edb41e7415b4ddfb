// A connection to a shared store, and the lock that keeps two pushes apart.
#ifndef KATCATALOG_STORE_H
#define KATCATALOG_STORE_H

#include <hiredis/hiredis.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Arguments.h"
#include "catalog/SharedReply.h"

namespace katcatalog {

using catalog::Reply;
using catalog::textOf;
// A command; the words may hold any bytes.
using Words = std::vector<std::string_view>;

// All functions throw listreader::Failure if the connection or the lock is lost, or redis replies with an
// error. Not thread-safe.
class Store {
public:
    // Connects to the store of the arguments and logs in.
    explicit Store(const Arguments& arguments);

    // Where it is, without user and password.
    std::string name() const { return "redis://" + host_; }

    Reply ask(const Words& command);

    // The version of the catalogue in it; empty if it has none. Throws if something else wrote it.
    std::string version();
    // Calls use(keys) for some of the keys of the catalogue at a time. What changes meanwhile may be missed
    // or come twice.
    void forEachKeys(const std::function<void(const std::vector<std::string_view>&)>& use);

    // Takes the lock. If another push has it but shows no life, waits until the lock expires. From then on
    // SIGINT and SIGTERM end the process in change(), which gives the lock back first; if the store does not
    // answer for a second, they end it without that.
    void lock();
    // Runs the commands as one transaction if the lock is still held, and prolongs it. Element i of the reply
    // is that of command i. REQUIRES: lock() was called.
    Reply change(const std::vector<Words>& commands);
    // The same, but gives the lock back.
    void unlock(const std::vector<Words>& commands) { transact(commands, false); }
    // Whether a signal came that has not ended the process.
    static bool wasSignalled();

private:
    void send(const Words& command);
    Reply receive();
    void wait(short events);
    void sendWatch();
    void receiveWatch();
    Reply transact(const std::vector<Words>& commands, bool keepsLock);
    void endIfAsked();
    [[noreturn]] static void end(const char* more);
    [[noreturn]] void fail(const std::string& reason) const;

    struct FreeContext {
        void operator()(redisContext* context) const { redisFree(context); }
    };

    std::string host_;
    std::string token_;  // the lock's value
    bool hasLock_ = false;
    std::optional<std::chrono::steady_clock::time_point> endBy_;  // since a signal was seen
    std::unique_ptr<redisContext, FreeContext> context_;
    std::vector<const char*> words_;
    std::vector<std::size_t> sizes_;
};

// 16 hexadecimal digits.
std::string randomWord();

}  // namespace katcatalog

#endif
