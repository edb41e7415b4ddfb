#include "KatdPool.h"

#include <algorithm>
#include <stdexcept>

namespace gateway {

namespace {

// Questions per round on a connection: enough to fill a write, few enough that a slow answer delays few
// others.
constexpr std::size_t mostTogether = 128;
// While a connection is busy, questions are queued this long before another connection takes them. List hits
// are answered within this time, so the queued questions share a round. A slow engine call delays them no
// longer than this.
constexpr std::chrono::milliseconds patience(5);

}  // namespace

// The questions of one caller, on its stack.
struct KatdPool::Batch {
    Batch(const std::string* firstUrl, katclient_answer* firstAnswer, std::size_t size)
        : urls(firstUrl), answers(firstAnswer), count(size) {}

    const std::string* urls;
    katclient_answer* answers;
    std::size_t count;
    std::size_t taken = 0;     // questions that a connection has taken
    std::size_t answered = 0;  // the batch is complete when this is `count`
    std::condition_variable changed;
};

KatdPool::KatdPool(const std::string& socketPath, unsigned connections, unsigned answerMs) {
    for (unsigned i = 0; i < connections; ++i) {
        katclient* client = nullptr;
        const int status = katclient_open(socketPath.c_str(), &client);
        if (status == KATCLIENT_NO_MEMORY) throw std::bad_alloc();
        if (status != KATCLIENT_OK)
            throw std::runtime_error("the path " + socketPath + " cannot be that of a socket");
        idle_.emplace_back(client, katclient_close);
        katclient_set_limits(client, 0, answerMs);
    }
}

KatdPool::~KatdPool() = default;

katclient_answer KatdPool::ask(const std::string& url) {
    katclient_answer answer;
    Batch batch(&url, &answer, 1);
    complete(&batch);
    return answer;
}

void KatdPool::ask(const std::vector<std::string>& urls, std::vector<katclient_answer>* answers) {
    answers->resize(urls.size());
    Batch batch(urls.data(), answers->data(), urls.size());
    if (!urls.empty()) complete(&batch);
}

void KatdPool::complete(Batch* batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    queue_.push_back(batch);
    queued_ += batch->count;
    while (batch->answered < batch->count) {
        if (batch->taken == batch->count || idle_.empty())
            batch->changed.wait(lock);
        else if (const Clock::time_point next = nextRound(); queued_ >= mostTogether || Clock::now() >= next)
            serve(&lock);
        else
            batch->changed.wait_until(lock, next);
    }
}

// The earliest time at which another connection may be used: at once if no round is in progress.
KatdPool::Clock::time_point KatdPool::nextRound() const {
    return rounds_.empty() ? Clock::time_point() : *rounds_.rbegin() + patience;
}

// One round on an idle connection with the oldest questions of the queue. Called with the lock held; releases
// it while waiting for katd.
void KatdPool::serve(std::unique_lock<std::mutex>* lock) {
    Client client = std::move(idle_.back());
    idle_.pop_back();
    std::vector<Part> parts;
    std::size_t count = 0;
    while (count < mostTogether && !queue_.empty()) {
        Batch* const batch = queue_.front();
        const std::size_t end = std::min(batch->count, batch->taken + mostTogether - count);
        parts.push_back({batch, batch->taken, end});
        count += end - batch->taken;
        batch->taken = end;
        if (end == batch->count) queue_.pop_front();
    }
    queued_ -= count;
    const Clock::time_point start = Clock::now();
    rounds_.insert(start);
    lock->unlock();

    const char* urls[mostTogether];
    std::size_t lengths[mostTogether];
    katclient_answer answers[mostTogether];
    std::size_t i = 0;
    for (const Part& part : parts) {
        for (std::size_t k = part.begin; k < part.end; ++k, ++i) {
            urls[i] = part.batch->urls[k].data();
            lengths[i] = part.batch->urls[k].size();
        }
    }
    katclient_ask_many(client.get(), urls, lengths, count, 0, answers);

    lock->lock();
    rounds_.erase(rounds_.find(start));
    idle_.push_back(std::move(client));
    i = 0;
    for (const Part& part : parts) {
        for (std::size_t k = part.begin; k < part.end; ++k)
            part.batch->answers[k] = answers[i++];
        part.batch->answered += part.end - part.begin;
        if (part.batch->answered == part.batch->count) part.batch->changed.notify_one();
    }
    // This thread returns to its caller, so a waiting thread has to take over the queue.
    if (!queue_.empty()) queue_.front()->changed.notify_one();
}

}  // namespace gateway
