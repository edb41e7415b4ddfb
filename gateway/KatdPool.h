// A pool of connections to katd that the threads of the HTTP server share.
#ifndef GATEWAY_KATDPOOL_H
#define GATEWAY_KATDPOOL_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "katclient.h"

namespace gateway {

// Thread-safe. It has no threads: a caller takes an idle connection and sends the questions that other
// callers have queued together with its own. At low load this costs no thread switch; at high load many
// questions share a write. The next question restores a lost connection.
class KatdPool {
public:
    // `answerMs` limits the wait for each answer; 0: no limit. Throws std::runtime_error with a sentence if
    // the path cannot be that of a socket, std::bad_alloc if memory is short. Connects to nothing yet.
    KatdPool(const std::string& socketPath, unsigned connections, unsigned answerMs);
    ~KatdPool();
    KatdPool(const KatdPool&) = delete;
    KatdPool& operator=(const KatdPool&) = delete;

    // Asks for all URLs and returns when each answer's status is set. A URL is a string without zero bytes.
    void ask(const std::vector<std::string>& urls, std::vector<katclient_answer>* answers);
    katclient_answer ask(const std::string& url);

private:
    using Client = std::unique_ptr<katclient, void (*)(katclient*)>;
    using Clock = std::chrono::steady_clock;
    struct Batch;
    struct Part {
        Batch* batch;
        std::size_t begin;
        std::size_t end;
    };

    void complete(Batch* batch);
    Clock::time_point nextRound() const;
    void serve(std::unique_lock<std::mutex>* lock);

    std::mutex mutex_;
    std::deque<Batch*> queue_;  // batches with questions that no connection has taken; guarded by mutex_
    std::size_t queued_ = 0;    // their questions; guarded by mutex_
    std::multiset<Clock::time_point> rounds_;  // when those under way began; guarded by mutex_
    std::vector<Client> idle_;                 // guarded by mutex_
};

}  // namespace gateway

#endif
