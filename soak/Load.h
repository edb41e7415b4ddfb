// The clients of the soak, well-behaved and not, each in a thread of its own. Every answer is checked.
#ifndef KATD_TESTS_LOAD_H
#define KATD_TESTS_LOAD_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Findings.h"
#include "support/Client.h"
#include "support/Home.h"

namespace katd_test {

class Load {
public:
    static constexpr unsigned ASKERS = 4;   // clients with queries
    static constexpr unsigned MARKERS = 2;  // clients whose requests must all be in the log

    // Writes lists and rules to the home; to be called before katd starts.
    Load(const Home& home, Findings& findings);

    // Whether the engine accepts the cache file.
    static bool isWholeCache(const std::string& path);

    // Starts all clients, and ends them. Both may be called again.
    void start();
    void stop();

    // What was done so far. Thread-safe.
    enum Deed { RETRIES, RELOADS, SAVES, CACHE_LOOKS, REFUSALS, HANG_UPS, LOG_LOCKS, DEEDS };
    static constexpr const char* deedNames[DEEDS] = {"retried queries", "reloads",
                                                     "cache saves",     "reads of the cache file",
                                                     "refusals",        "clients that hung up early",
                                                     "locks of the log"};
    std::atomic<unsigned> deeds[DEEDS] = {};
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> answers{0};  // correct ones
    // What katd's statistics must be when every request has been served.
    std::atomic<std::uint32_t> allUrls{0};
    std::atomic<std::uint32_t> matchedUrls{0};

    // Numbers 0 to markersSent[client] - 1 must be in the log. REQUIRES: stopped.
    std::vector<unsigned> markersSent = std::vector<unsigned>(MARKERS);

private:
    class Random {
    public:
        explicit Random(unsigned seed) : engine_(seed) {}
        unsigned below(std::size_t limit) { return static_cast<unsigned>(engine_() % limit); }

    private:
        std::mt19937 engine_;
    };
    struct Query {
        std::string message;
        std::vector<unsigned> categories[2];  // the answer by the lists of each version
        bool matched;
        unsigned all;          // what it adds to the statistics
        unsigned matchedUrls;  // the same
    };
    struct Asker {
        explicit Asker(unsigned number)
            : retriedHost("retried" + std::to_string(number) + ".example"), random(number) {}
        std::string retriedHost;
        Random random;
        unsigned seenRules = 0;  // number of the rules in force when the host was last queried
    };

    std::unique_ptr<Client> connect();
    bool control(Client& client, const std::string& body);
    void judge(const Query& query, const std::optional<Reply>& reply, bool reloading, unsigned version);
    bool goesOn() const { return !stop_ && !findings_.any(); }

    void ask(Asker& asker);
    void askBatch(Client& client, Random& random);
    void askRetried(Client& client, Asker& asker);
    static Query randomQuery(Random& random);
    void mark(unsigned sender);
    void administer();
    void writeLists(unsigned version) const;
    void writeRules();
    void reload(Client& client);
    void beSilent(Client& client);
    void lockLog(Client& client);
    void watchCacheFile();
    void misbehave();
    void beRefused(Client& client, unsigned kind);
    void hangUp(Client& client, unsigned kind);

    const Home& home_;
    Findings& findings_;
    std::string lists_[2][2];  // the URL list and the domain list, by version
    std::vector<Asker> askers_;
    std::vector<std::thread> threads_;
    std::atomic<bool> stop_{false};
    // Twice the number of reloads, odd during one. Half of it, modulo 2, is the version of the lists.
    std::atomic<unsigned> reloadStep_{0};
    std::mutex rulesMutex_;      // held while a rule's sequence must not change
    unsigned rulesWritten_ = 0;  // guarded by rulesMutex_
    std::mutex levelMutex_;      // held while the message level must not change
};

}  // namespace katd_test

#endif
