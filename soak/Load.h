// The clients of the soak, good and bad, each in a thread of its own. Every answer is judged.
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
    static constexpr unsigned MARKERS = 2;  // clients whose requests are to be found in the log

    // Writes lists and rules to the home, for a katd that is started afterwards.
    Load(const Home& home, Findings& findings);

    // All clients begin; all are gone when stop() returns. Both may be called again.
    void start();
    void stop();

    // What was done so far; for any thread.
    enum Deed { RETRIES, RELOADS, SAVES, CACHE_LOOKS, REFUSALS, HANG_UPS, DEEDS };
    static constexpr const char* deedNames[DEEDS] = {"retried queries", "reloads",
                                                     "cache saves",     "looks at cache files",
                                                     "refusals",        "clients that hung up in the middle"};
    std::atomic<unsigned> deeds[DEEDS] = {};
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> answers{0};  // right ones
    // What katd's statistics must show when every request was served.
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
        std::vector<unsigned> categories[2];  // the right answer by the lists of either version
        bool matched;
        unsigned all;          // by how much the statistics grow
        unsigned matchedUrls;  // the same
    };
    struct Asker {
        explicit Asker(unsigned number)
            : retriedHost("retried" + std::to_string(number) + ".example"), random(number) {}
        std::string retriedHost;
        Random random;
        unsigned seenRules = 0;  // number of the rules that the host was last asked under
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
    void watchCacheFile();
    void misbehave();
    void beRefused(Client& client, unsigned kind);
    void hangUp(Client& client, unsigned kind);

    const Home& home_;
    Findings& findings_;
    std::string lists_[2][2];  // texts of the URL and the domain list by version
    std::vector<Asker> askers_;
    std::vector<std::thread> threads_;
    std::atomic<bool> stop_{false};
    // Twice the number of reloads; odd while one is under way. Half of it is the lists' version, modulo 2.
    std::atomic<unsigned> reloadStep_{0};
    std::mutex rulesMutex_;      // held by who depends on how far a rule has got
    unsigned rulesWritten_ = 0;  // guarded by rulesMutex_
    std::mutex levelMutex_;      // held by who depends on errors being logged, or not
};

}  // namespace katd_test

#endif
