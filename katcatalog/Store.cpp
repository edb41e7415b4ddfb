#include "Store.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <thread>

#include "catalog/Shared.h"
#include "catalog/SharedAddress.h"
#include "listreader/Console.h"
#include "listreader/Failure.h"
#include "listreader/LineFile.h"

namespace katcatalog {

using listreader::Failure;
using Clock = std::chrono::steady_clock;

namespace {

constexpr timeval connectWait = {10, 0};
constexpr std::chrono::seconds replyWait(60);
constexpr std::chrono::seconds endWait(1);  // of a push that is to end, for the store
// The lock of a push that was killed expires; a living one prolongs it with each change.
constexpr long long lockMilliseconds = 30000;
constexpr std::string_view lockWords = "30000";
constexpr int lookPause = 200;
constexpr std::string_view pageKeys = "2000";  // of one SCAN: redis answers nobody else meanwhile
constexpr std::string_view lockKey = catalog::sharedLockKey;
constexpr const char* lockLost = "another push has begun, or the store was out of reach for too long";

volatile std::sig_atomic_t endSignal = 0;

// A signal that is ignored, as in the background of a shell, stays so.
void catchEndSignals() {
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue;
        action.sa_handler = [](int number) { endSignal = number; };
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
}

std::string readPassword(const std::string& path) {
    listreader::LineFile file(path);
    std::string password;
    if (file.next()) password.assign(file.text, std::strcspn(file.text, "\r\n"));
    if (password.empty())
        throw Failure(listreader::failed, path + ": the first line is empty: write the password there");
    return password;
}

}  // namespace

std::string randomWord() {
    std::random_device random;
    char text[17];
    std::snprintf(text, sizeof text, "%08x%08x", random(), random());
    return text;
}

Store::Store(const Arguments& arguments) : token_(randomWord()) {
    catalog::SharedAddress address;
    const char* const reason = catalog::readSharedAddress(arguments.catalog, &address);
    if (reason != nullptr || address.hosts.size() != 1) {
        throw Failure(listreader::badUsage, std::string("the store's address is wrong: ") +
                                                (reason != nullptr ? reason : "name one host, the primary"));
    }
    const catalog::SharedAddress::Host& host = address.hosts[0];
    host_ = host.text();
    if (!arguments.passwordFile.empty()) address.password = readPassword(arguments.passwordFile);
    std::signal(SIGPIPE, SIG_IGN);  // a lost connection is an error of write()
    context_.reset(host.isSocket() ? redisConnectUnixWithTimeout(host.name.c_str(), connectWait)
                                   : redisConnectWithTimeout(host.name.c_str(), host.port, connectWait));
    if (context_ == nullptr) throw std::bad_alloc();
    if (context_->err != 0) fail(context_->errstr);
    // Nothing but wait() waits from here on, and it heeds signals.
    fcntl(context_->fd, F_SETFL, fcntl(context_->fd, F_GETFL) | O_NONBLOCK);
    context_->flags &= ~REDIS_BLOCK;
    if (!host.isSocket()) redisEnableKeepAlive(context_.get());
    if (!address.user.empty()) {
        ask({"AUTH", address.user, address.password});
    } else if (!address.password.empty()) {
        ask({"AUTH", address.password});
    }
}

void Store::fail(const std::string& reason) const {
    throw Failure(listreader::failed,
                  "store " + name() + ": " + reason +
                      (hasLock_ ? "; push again: that repairs what this push left undone" : ""));
}

void Store::send(const Words& command) {
    words_.clear();
    sizes_.clear();
    for (const std::string_view word : command) {
        words_.push_back(word.data());
        sizes_.push_back(word.size());
    }
    if (redisAppendCommandArgv(context_.get(), static_cast<int>(words_.size()), words_.data(),
                               sizes_.data()) != REDIS_OK)
        throw std::bad_alloc();
}

// The next reply. One error ends all: the replies behind it are of no interest.
Reply Store::receive() {
    redisContext* const context = context_.get();
    void* reply = nullptr;
    int isSent = 0;
    const auto check = [&](int status) {
        if (status != REDIS_OK) fail(context->errstr);
    };
    for (;;) {
        check(redisGetReply(context, &reply));
        if (reply != nullptr) break;
        if (isSent == 0) check(redisBufferWrite(context, &isSent));
        wait(isSent != 0 ? POLLIN : POLLIN | POLLOUT);
        check(redisBufferRead(context));
    }
    Reply result(static_cast<redisReply*>(reply));
    if (result->type == REDIS_REPLY_ERROR) fail(result->str);
    return result;
}

// Waits until the connection can be read, or written to.
void Store::wait(short events) {
    const auto begin = Clock::now();
    pollfd descriptor{context_->fd, events, 0};
    do {
        const auto now = Clock::now();
        if (endSignal != 0 && !endBy_) endBy_ = now + endWait;
        if (endBy_ && now >= *endBy_)
            end("; the store does not answer, and the lock may stay for half a minute: then push again");
        if (now - begin >= replyWait) fail("no answer within a minute");
    } while (poll(&descriptor, 1, lookPause) <= 0);
}

Reply Store::ask(const Words& command) {
    send(command);
    return receive();
}

std::string Store::version() {
    const Reply meta = ask({"GET", catalog::sharedMetaKey});
    std::string version(catalog::sharedVersion(textOf(*meta)));
    if (version.empty() && meta->type != REDIS_REPLY_NIL) {
        fail(
            "the key " + std::string(catalog::sharedMetaKey) +
            " is not that of a catalogue of this version: delete it to have katcatalog push replace all keys "
            "below " +
            std::string(catalog::sharedPrefix));
    }
    return version;
}

void Store::forEachKeys(const std::function<void(const std::vector<std::string_view>&)>& use) {
    const std::string pattern = std::string(catalog::sharedPrefix) + "*";
    std::string cursor = "0";
    std::vector<std::string_view> keys;
    do {
        const Reply page = ask({"SCAN", cursor, "MATCH", pattern, "COUNT", pageKeys});
        cursor = textOf(*page->element[0]);
        keys.clear();
        for (std::size_t i = 0; i < page->element[1]->elements; ++i) {
            const std::string_view key = textOf(*page->element[1]->element[i]);
            if (key != catalog::sharedMetaKey && key != catalog::sharedLockKey &&
                key != catalog::sharedUnfinishedKey)
                keys.push_back(key);
        }
        use(keys);
    } while (cursor != "0");
}

void Store::lock() {
    catchEndSignals();
    for (long long before = lockMilliseconds + lookPause;;) {
        endIfAsked();
        if (ask({"SET", lockKey, token_, "NX", "PX", lockWords})->type != REDIS_REPLY_NIL) break;
        const long long left = ask({"PTTL", lockKey})->integer;
        constexpr long long gone = -2;
        if (left == gone) continue;
        // It was prolonged, or never expires.
        if (left > before - lookPause / 2 || left < 0) fail("another push is under way");
        before = left;
        std::this_thread::sleep_for(std::chrono::milliseconds(lookPause));
    }
    hasLock_ = true;
    sendWatch();
    receiveWatch();
}

void Store::endIfAsked() {
    if (endSignal == 0) return;
    if (hasLock_) unlock({});
    end(hasLock_ ? "; push again: that completes what was begun" : "");
}

void Store::end(const char* more) {
    listreader::tell(std::string("stopped") + more);
    std::signal(endSignal, SIG_DFL);
    std::raise(endSignal);
    std::_Exit(listreader::failed);  // the signal is blocked
}

bool Store::wasSignalled() {
    return endSignal != 0;
}

// From here on the next transaction fails if somebody else takes the lock, or it expires.
void Store::sendWatch() {
    send({"WATCH", lockKey});
    send({"GET", lockKey});
}

void Store::receiveWatch() {
    receive();
    if (textOf(*receive()) != token_) fail(lockLost);
}

Reply Store::change(const std::vector<Words>& commands) {
    endIfAsked();
    return transact(commands, true);
}

Reply Store::transact(const std::vector<Words>& commands, bool keepsLock) {
    send({"MULTI"});
    for (const Words& command : commands)
        send(command);
    send(keepsLock ? Words{"SET", lockKey, token_, "PX", lockWords} : Words{"DEL", lockKey});
    send({"EXEC"});
    if (keepsLock) sendWatch();
    for (std::size_t queued = 0; queued < commands.size() + 2; ++queued)
        receive();
    Reply replies = receive();
    if (replies->type != REDIS_REPLY_ARRAY) fail(lockLost);
    for (std::size_t i = 0; i < replies->elements; ++i) {
        if (replies->element[i]->type == REDIS_REPLY_ERROR) fail(replies->element[i]->str);
    }
    if (keepsLock) receiveWatch();
    return replies;
}

}  // namespace katcatalog
