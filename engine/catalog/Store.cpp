#include "Store.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <system_error>
#include <thread>
#include <vector>

#include "Connection.h"
#include "Remembered.h"
#include "SignalsBlocked.h"

namespace engine {

using catalog::SharedQuestion;
using catalog::textOf;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds probeInterval{1000};
constexpr milliseconds firstPause{100};  // between attempts to connect; then longer and longer
constexpr milliseconds longestPause{5000};
constexpr milliseconds leastReplyLimit{1000};  // the store is down if a reply takes longer
constexpr std::size_t batchLimit = 32;         // questions that one connection asks together
constexpr std::size_t queueLimit = 1024;       // questions that wait for a connection
constexpr std::chrono::seconds stopLimit{2};

bool isError(const redisReply& reply) {
    return reply.type == REDIS_REPLY_ERROR;
}

// The text of an error, fit for a message.
std::string errorText(const redisReply& reply) {
    std::string text(reply.str, std::min(reply.len, std::size_t{200}));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    return text;
}

void report(const std::string& sentence) {
    std::fprintf(stderr, "katd-engine-catalog: shared store: %s\n", sentence.c_str());
}

// A question on its way through the queue.
struct Lookup {
    enum State { waiting, answered, failed };
    struct Record {
        bool isKnown = false;
        bool isAsked = false;  // of the store
        std::string value;
    };

    explicit Lookup(SharedQuestion asked) : question(std::move(asked)), records(question.size()) {}

    // Calls use(key, record) for each record that is needed, judging by those that are known by then.
    template <typename Use>
    void forEachNeeded(Use use) {
        for (std::size_t i = 0; i < records.size(); ++i) {
            for (std::size_t level = 0; level < catalog::sharedLevels; ++level) {
                const std::string key = question.key(i, level);
                if (key.empty()) break;
                Record& record = records[i][level];
                use(key, &record);
                if (record.isKnown && !catalog::groupHasBelow(record.value)) break;
            }
        }
    }

    // REQUIRES: all records that are needed are known.
    void evaluate(catalog::Answer* answer) const {
        for (const auto& levels : records) {
            SharedQuestion::Values values;
            for (std::size_t level = 0; level < values.size(); ++level) {
                values[level] = levels[level].value;
                if (!catalog::groupHasBelow(values[level])) break;
            }
            if (!question.add(values, answer)) return;
        }
    }

    const SharedQuestion question;
    std::vector<std::array<Record, catalog::sharedLevels>> records;  // of each candidate
    std::vector<Record*> missing;                                    // those that the command fetches
    Connection::Command command;
    std::condition_variable changed;
    State state = waiting;  // guarded by the store's mutex
};
using Batch = std::vector<std::shared_ptr<Lookup>>;

}  // namespace

// Its threads own it too: one that hangs in the name service outlives the Store.
class Store::Core : public std::enable_shared_from_this<Store::Core> {
public:
    explicit Core(const StoreSettings& settings)
        : settings_(settings),
          replyLimit_(std::max(leastReplyLimit, settings.wait)),
          silenceLimit_(probeInterval + 2 * replyLimit_),
          remembered(settings.records, settings.lifetime) {}
    ~Core() {
        if (stopEvent_ >= 0) close(stopEvent_);
    }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    bool start(std::string* failure);
    void stop();
    bool classify(SharedQuestion question, catalog::Answer* answer);

private:
    enum State { starting, up, down };

    void startThread(void (Core::*body)());
    void ask();
    void watch();
    bool take(Batch* batch, std::uint64_t* breaks);
    void askBatch(Connection* connection, const Batch& batch, std::uint64_t breaks);
    bool exchangeBatch(Connection* connection, const Batch& batch, std::string* failure);
    bool readAnswer(const redisReply& reply, Lookup* lookup, std::string* failure);
    bool connect(Connection* connection, std::string* failure);
    void passOver(const Connection& connection);
    bool greet(Connection* connection, std::string* failure);
    bool readVersion(const redisReply& reply, Remembered::Generation* generation, std::string* failure);
    void setUp(std::uint64_t breaks, bool isRenewed);
    void setDown(const std::string& failure, std::uint64_t breaks);
    void finish(const std::shared_ptr<Lookup>& lookup, Lookup::State state);

    const StoreSettings settings_;
    const milliseconds replyLimit_;
    const milliseconds silenceLimit_;        // the store is down if nothing has come for longer
    int stopEvent_ = -1;                     // readable when the threads are to end
    std::atomic<std::size_t> firstHost_{0};  // the host to connect to first
    std::atomic<Remembered::Generation> damageReported_{0};

    // Held for moments only. No other lock is taken while it is held.
    std::mutex mutex_;
    std::condition_variable work_;     // the queue has a question, or stop_
    std::condition_variable changed_;  // the state is down by now, or stop_
    std::condition_variable ended_;    // a thread has ended
    std::deque<std::shared_ptr<Lookup>> queue_;
    State state_ = starting;
    std::uint64_t breaks_ = 0;  // how often the connections there were could no longer be trusted
    Clock::time_point lastReply_ = Clock::now();
    bool stop_ = false;
    std::size_t threads_ = 0;

public:
    Remembered remembered;
};

bool Store::Core::start(std::string* failure) {
    stopEvent_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    try {
        if (stopEvent_ < 0) throw std::system_error(errno, std::generic_category());
        const SignalsBlocked blocked;
        startThread(&Core::watch);
        for (std::uint32_t i = 0; i < settings_.connections; ++i)
            startThread(&Core::ask);
    } catch (const std::system_error& error) {
        *failure = std::string("cannot start the threads that ask the shared store: ") + error.what();
        return false;
    }
    return true;
}

void Store::Core::startThread(void (Core::*body)()) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++threads_;
    }
    const auto run = [core = shared_from_this(), body] {
        (core.get()->*body)();
        const std::lock_guard<std::mutex> guard(core->mutex_);
        --core->threads_;
        core->ended_.notify_all();
    };
    try {
        std::thread(run).detach();
    } catch (...) {
        const std::lock_guard<std::mutex> guard(mutex_);
        --threads_;
        throw;
    }
}

void Store::Core::stop() {
    std::unique_lock<std::mutex> lock(mutex_);
    stop_ = true;
    if (stopEvent_ >= 0) eventfd_write(stopEvent_, 1);
    work_.notify_all();
    changed_.notify_all();
    ended_.wait_for(lock, stopLimit, [this] { return threads_ == 0; });
}

bool Store::Core::classify(SharedQuestion question, catalog::Answer* answer) {
    const auto end = Clock::now() + settings_.wait;
    const auto lookup = std::make_shared<Lookup>(std::move(question));
    lookup->forEachNeeded([&](const std::string& key, Lookup::Record* record) {
        record->isKnown = remembered.find(key, &record->value);
        record->isAsked = !record->isKnown;
        if (record->isKnown) return;
        if (lookup->missing.empty()) lookup->command = {"MGET", std::string(catalog::sharedMetaKey)};
        lookup->missing.push_back(record);
        lookup->command.push_back(key);
    });
    if (!lookup->missing.empty()) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (state_ == down || stop_ || queue_.size() >= queueLimit) return false;
        queue_.push_back(lookup);
        work_.notify_one();
        lookup->changed.wait_until(lock, end, [&] { return lookup->state != Lookup::waiting; });
        const Lookup::State state = lookup->state;
        const std::uint64_t breaks = breaks_;
        // The other threads do not find this out while they hang in the name service.
        const bool isSilent = state == Lookup::waiting && Clock::now() - lastReply_ > silenceLimit_;
        lock.unlock();
        if (isSilent) setDown(settings_.address.hosts[firstHost_].text() + ": no reply", breaks);
        if (state != Lookup::answered) return false;
    }
    lookup->evaluate(answer);
    return true;
}

void Store::Core::finish(const std::shared_ptr<Lookup>& lookup, Lookup::State state) {
    const std::lock_guard<std::mutex> guard(mutex_);
    lookup->state = state;
    lookup->changed.notify_all();
    if (state == Lookup::answered) lastReply_ = Clock::now();
}

bool Store::Core::take(Batch* batch, std::uint64_t* breaks) {
    batch->clear();
    std::unique_lock<std::mutex> lock(mutex_);
    work_.wait(lock, [this] { return stop_ || !queue_.empty(); });
    if (stop_) return false;
    *breaks = breaks_;
    while (!queue_.empty() && batch->size() < batchLimit) {
        batch->push_back(std::move(queue_.front()));
        queue_.pop_front();
    }
    return true;
}

// The body of each thread that has one of the connections.
void Store::Core::ask() {
    Connection connection(stopEvent_);
    Batch batch;
    batch.reserve(batchLimit);
    std::uint64_t openedAt = 0;
    std::uint64_t breaks = 0;
    while (take(&batch, &breaks)) {
        // A connection from before may be dead without a word, although the store answers.
        if (breaks != openedAt) connection.close();
        openedAt = breaks;
        try {
            askBatch(&connection, batch, breaks);
        } catch (const std::exception&) {
            // Out of memory: these questions stay without an answer.
            connection.close();
        }
        for (const auto& lookup : batch) {
            if (lookup->state == Lookup::waiting) finish(lookup, Lookup::failed);
        }
    }
}

void Store::Core::askBatch(Connection* connection, const Batch& batch, std::uint64_t breaks) {
    std::string failure;
    // A connection that was idle may have been closed by the store, or the store was restarted.
    const bool wasOpen = connection->isOpen();
    if (wasOpen || connect(connection, &failure)) {
        if (exchangeBatch(connection, batch, &failure)) return;
        const bool again = wasOpen && !connection->isOpen() && !connection->timedOut();
        if (again && connect(connection, &failure) && exchangeBatch(connection, batch, &failure)) return;
    }
    passOver(*connection);
    connection->close();
    setDown(failure, breaks);
}

bool Store::Core::exchangeBatch(Connection* connection, const Batch& batch, std::string* failure) {
    std::vector<Connection::Command> commands;
    for (const auto& lookup : batch)
        commands.push_back(lookup->command);
    std::vector<Reply> replies;
    const bool whole = connection->exchange(commands, replyLimit_, &replies);
    if (!whole) *failure = connection->failure();
    bool good = true;
    for (std::size_t i = 0; i < replies.size() && good; ++i) {
        if (batch[i]->state == Lookup::answered) continue;
        good = readAnswer(*replies[i], batch[i].get(), failure);
        if (good) finish(batch[i], Lookup::answered);
    }
    if (whole && good) return true;
    *failure = connection->host() + ": " + *failure;
    return false;
}

bool Store::Core::readAnswer(const redisReply& reply, Lookup* lookup, std::string* failure) {
    Remembered::Generation generation = 0;
    if (isError(reply)) {
        *failure = errorText(reply);
        return false;
    }
    if (reply.type != REDIS_REPLY_ARRAY || reply.elements != lookup->missing.size() + 1) {
        *failure = "a reply is not redis'";
        return false;
    }
    if (!readVersion(*reply.element[0], &generation, failure)) return false;
    for (std::size_t i = 0; i < lookup->missing.size(); ++i) {
        const std::string_view value = textOf(*reply.element[i + 1]);
        lookup->missing[i]->isKnown = true;
        if (value.empty() || catalog::isGroup(value)) {
            lookup->missing[i]->value = value;
        } else if (damageReported_.exchange(generation) != generation) {
            report("it has foreign or damaged records, which are ignored; katcatalog push replaces them");
        }
    }
    // What was asked for in advance is remembered only if it can be needed.
    lookup->forEachNeeded([&](const std::string& key, const Lookup::Record* record) {
        if (record->isAsked) remembered.put(generation, key, record->value);
    });
    return true;
}

bool Store::Core::readVersion(const redisReply& reply, Remembered::Generation* generation,
                              std::string* failure) {
    const std::string_view version = catalog::sharedVersion(textOf(reply));
    if (version.empty()) {
        *failure = isError(reply) ? errorText(reply) : "it holds no catalogue; make one with katcatalog push";
        return false;
    }
    *generation = remembered.setVersion(version);
    return true;
}

// If the host of the connection was silent, attempts begin with the next one. Other connections may have
// found it out before.
void Store::Core::passOver(const Connection& connection) {
    const auto& hosts = settings_.address.hosts;
    std::size_t first = firstHost_;
    if (connection.timedOut() && hosts[first].text() == connection.host())
        firstHost_.compare_exchange_strong(first, (first + 1) % hosts.size());
}

// Connects to the first host that answers, beginning with that of the other connections.
bool Store::Core::connect(Connection* connection, std::string* failure) {
    passOver(*connection);
    const auto& hosts = settings_.address.hosts;
    const std::size_t first = firstHost_;
    failure->clear();
    for (std::size_t i = 0; i < hosts.size(); ++i) {
        const std::size_t host = (first + i) % hosts.size();
        std::string reason;
        if (connection->open(hosts[host], replyLimit_)) {
            if (greet(connection, &reason)) {
                firstHost_ = host;
                return true;
            }
        } else {
            reason = connection->failure();
        }
        *failure += (failure->empty() ? "" : "; ") + connection->host() + ": " + reason;
    }
    return false;
}

// Logs in, and looks whether there is a catalogue.
bool Store::Core::greet(Connection* connection, std::string* failure) {
    std::vector<Connection::Command> commands;
    if (!settings_.address.password.empty()) {
        Connection::Command& login = commands.emplace_back(Connection::Command{"AUTH"});
        if (!settings_.address.user.empty()) login.push_back(settings_.address.user);
        login.push_back(settings_.address.password);
    }
    commands.push_back({"GET", std::string(catalog::sharedMetaKey)});
    std::vector<Reply> replies;
    Remembered::Generation generation = 0;
    if (!connection->exchange(commands, replyLimit_, &replies)) {
        *failure = connection->failure();
        return false;
    }
    if (isError(*replies.front())) {
        *failure = errorText(*replies.front());
    } else if (readVersion(*replies.back(), &generation, failure)) {
        return true;
    }
    connection->close();
    return false;
}

// The body of the thread that finds out when the store has a new version, goes down or comes back.
void Store::Core::watch() {
    Connection connection(stopEvent_);
    std::minstd_rand random(static_cast<unsigned>(Clock::now().time_since_epoch().count()));
    milliseconds pause = firstPause;
    Clock::time_point upSince = Clock::now();
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_) {
        const std::uint64_t breaks = breaks_;
        lock.unlock();
        try {
            std::string failure;
            const bool wasOpen = connection.isOpen();
            if (wasOpen && greet(&connection, &failure)) {
                setUp(breaks, false);
            } else if (connect(&connection, &failure)) {
                setUp(breaks, wasOpen);
            } else {
                setDown(failure, breaks);
            }
        } catch (const std::exception&) {
            connection.close();  // out of memory
        }
        lock.lock();
        if (changed_.wait_for(lock, probeInterval, [this] { return stop_ || state_ == down; })) {
            // Another thread may have found that it is down: only a new connection proves that it is back.
            connection.close();
            if (Clock::now() - upSince > longestPause) pause = firstPause;
            const milliseconds jitter(random() % static_cast<unsigned>(pause.count() / 2));
            changed_.wait_for(lock, pause - jitter, [this] { return stop_; });
            pause = std::min(2 * pause, longestPause);
            upSince = Clock::now();
        }
    }
}

// `breaks` is the value of breaks_ before the connection proved that the store can be used, `isRenewed`
// whether it took the place of one that was lost.
void Store::Core::setUp(std::uint64_t breaks, bool isRenewed) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        lastReply_ = Clock::now();
        if (breaks_ != breaks) return;
        breaks_ += isRenewed ? 1 : 0;
        if (state_ == up) return;
        state_ = up;
        if (breaks == 0) return;
    }
    report(settings_.address.hosts[firstHost_].text() + " answers again");
}

// `breaks` is the value of breaks_ before what failed was begun: an older connection proves nothing.
void Store::Core::setDown(const std::string& failure, std::uint64_t breaks) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (breaks_ != breaks) return;
        for (const auto& lookup : queue_) {
            lookup->state = Lookup::failed;
            lookup->changed.notify_all();
        }
        queue_.clear();
        if (state_ == down || stop_) return;
        state_ = down;
        ++breaks_;
        changed_.notify_all();
    }
    report(failure + "; until it is back, URLs that only the store knows are Unknown");
}

std::unique_ptr<Store> Store::start(const StoreSettings& settings, std::string* failure) {
    std::unique_ptr<Store> store(new Store(std::make_shared<Core>(settings)));
    if (!store->core_->start(failure)) store.reset();
    return store;
}

Store::~Store() {
    core_->stop();
}

bool Store::classify(SharedQuestion&& question, catalog::Answer* answer) {
    return core_->classify(std::move(question), answer);
}

bool Store::save(std::FILE* file) {
    return core_->remembered.save(file);
}

bool Store::load(std::string_view text) {
    return core_->remembered.load(text);
}

}  // namespace engine
