// The catalogue engine with a shared store.
#ifdef KATD_HAVE_HIREDIS

#include <netdb.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <atomic>
#include <thread>

#include "catalog/SharedGroups.h"
#include "engine/catalog/EngineFixture.h"
#include "support/RedisServer.h"

using namespace catalog;

// In place of the name service.
static std::atomic<bool> nameServiceIsSilent{false};
extern "C" int getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**) {
    while (nameServiceIsSilent)
        usleep(1000);
    return EAI_AGAIN;
}

namespace {

using katd_test::eventually;
using katd_test::Messages;
using katd_test::readFile;
using katd_test::RedisServer;
using katd_test::writeFile;

struct Line {
    const char* entry;
    std::vector<std::uint16_t> categories;
    bool instead = false;
};
// clang-format off
const std::vector<Line> entries = {
    {"example.com", {300, 5}}, {"example.com:8080", {80}}, {"local.test", {9}}, {"www.example.com/ads", {44, 5}},
    {"www.example.com/ads/a/b?c", {45}}, {"good.www.example.com", {}, true}, {"203.0.113.0/24", {7}},
    {"203.0.113.9/x", {8}}, {"known.test", {}},
};
// clang-format on

// A shared store with these entries in its version "a".
class StoreServer : public RedisServer {
public:
    StoreServer() { push("a", entries); }

    void push(const std::string& version, const std::vector<Line>& lines) {
        SharedGroups groups;
        for (const Line& line : lines) {
            Url entry;
            ASSERT_EQ(nullptr, readEntry(line.entry, &entry));
            groups.add(entry, line.instead, line.categories);
        }
        run({"FLUSHALL"});
        for (const auto& [key, value] : groups.records())
            EXPECT_EQ("OK", run({"SET", key, value}));
        EXPECT_EQ("OK", run({"SET", std::string(sharedMetaKey), sharedMeta(version)}));
    }

    // How many questions engines have asked.
    int questions() { return number("cmdstat_mget:calls="); }
    // How often they have looked whether it is there.
    int probes() { return number("cmdstat_get:calls="); }
    // How often somebody has connected, this call included.
    int connections() { return number("total_connections_received:"); }

private:
    int number(const std::string& key) {
        const std::string statistics = run({"INFO", "ALL"});
        const auto place = statistics.find(key);
        return place == statistics.npos ? 0 : std::stoi(statistics.substr(place + key.size()));
    }
};

class StoreTest : public katd_test::EngineFixture {
protected:
    StoreTest() : messages(folder / "messages") { replace({{"local.test", 1}}); }

    // A wait that is long enough on any machine, unless a test says otherwise.
    void use(const RedisServer& server, const std::string& more = "shared_wait = 5000\n") {
        settings("shared = " + server.address() + "\n" + more);
        create();
    }

    Messages messages;
};

TEST_F(StoreTest, answersWhatTheCatalogueDoesNotCoverAndRemembersIt) {
    StoreServer store;
    use(store);
    // clang-format off
    const std::pair<const char*, const char*> rows[] = {
        {"http://local.test/", "1"}, {"http://example.com/", "300,5"}, {"http://example.com:8080/", "80,300,5"},
        {"https://x.www.example.com/ads?x", "44,5,300"}, {"https://www.example.com/adsl", "300,5"},
        {"https://www.example.com/ads/a/b?c&d", "45,44,5,300"}, {"https://x.good.www.example.com/ads", "final"},
        {"http://203.0.113.9/x/y", "8,7"}, {"http://known.test/", "final"}, {"http://other.test/", "final"},
        {"::::", "final"},
    };
    // clang-format on
    for (const auto& [url, expected] : rows)
        EXPECT_EQ(expected, ask(url)) << url;
    // Misses too, and other paths of a host without paths.
    const int questions = store.questions();
    EXPECT_GT(questions, 0);
    for (const auto& [url, expected] : rows)
        EXPECT_EQ(expected, ask(url)) << url;
    EXPECT_EQ("final", ask("http://other.test/a/b?c"));
    EXPECT_EQ(questions, store.questions());
    // Another version.
    store.push("b", {{"other.test", {3}}});
    EXPECT_EQ("3", askUntil("http://other.test/", "3"));
    EXPECT_EQ("final", ask("http://example.com/"));
}

TEST_F(StoreTest, keepsToItsSizeAndToWhatIsUsed) {
    StoreServer store;
    settings("shared = " + store.address() + "\nshared_wait = 5000\n");
    create("HttpConnPoolSize=1;WebSecCacheMaxEntries=100");
    ask("www.example.com");  // three records
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ("final", ask("h" + std::to_string(i)));  // one
        EXPECT_EQ("300,5", ask("www.example.com"));
    }
    EXPECT_EQ(501, store.questions());
    const std::string cache = folder / "cache";
    EXPECT_EQ(0, CSDKMain_SaveWebSecCache(engine, cache.c_str()));
    EXPECT_GT(std::filesystem::file_size(cache), 50 * 20U);
    EXPECT_LT(std::filesystem::file_size(cache), 100 * 40U);
    create("HttpConnPoolSize=1;WebSecCacheMaxEntries=0");
    EXPECT_EQ("300,5", ask("www.example.com"));
    EXPECT_EQ("300,5", ask("www.example.com"));
    EXPECT_EQ(503, store.questions());
    settings("shared = " + store.address() + "\nshared_wait = 5000\nshared_ttl = 1\n");
    create();
    EXPECT_EQ("300,5", ask("www.example.com"));
    store.run({"DEL", "katd:hcom" + std::string(1, '\0') + "example"});
    EXPECT_EQ("final", askUntil("www.example.com", "final"));
}

TEST_F(StoreTest, theCacheFileKeepsItOverARestart) {
    StoreServer store;
    use(store);
    EXPECT_EQ("300,5", ask("www.example.com"));
    EXPECT_EQ("final", ask("other.test"));
    const std::string cache = folder / "cache";
    EXPECT_EQ(0, CSDKMain_SaveWebSecCache(engine, cache.c_str()));
    const std::string good = readFile(cache);
    store.kill();
    create();
    ASSERT_TRUE(messages.waitFor("cannot connect: "));
    EXPECT_EQ("unknown", ask("www.example.com"));
    EXPECT_EQ(0, CSDKMain_LoadWebSecCache(engine, cache.c_str())) << lastFailure();
    EXPECT_EQ("300,5", ask("www.example.com"));
    EXPECT_EQ("final", ask("other.test"));
    for (const std::size_t place : {std::size_t{30}, good.size() / 2, good.size() - 1}) {
        std::string bad = good;
        bad[place] = static_cast<char>(bad[place] ^ 1);
        for (const std::string& text : {bad, good.substr(0, place)}) {
            writeFile(cache, text);
            EXPECT_NE(0, CSDKMain_LoadWebSecCache(engine, cache.c_str()));
            EXPECT_EQ("3 " + cache + " is no cache file of this engine, or it is cut or damaged",
                      lastFailure());
        }
    }
    EXPECT_EQ("300,5", ask("www.example.com"));
    // The store comes back with another version: what was loaded is forgotten.
    store.start();
    store.push("b", {{"example.com", {6}}});
    EXPECT_EQ("6", askUntil("www.example.com", "6"));
    writeFile(cache, good);
    EXPECT_EQ(0, CSDKMain_LoadWebSecCache(engine, cache.c_str()));
    EXPECT_EQ("6", ask("www.example.com"));
}

TEST_F(StoreTest, silenceCostsTheWaitAndADownStoreNothing) {
    StoreServer store;
    // What comes after the wait is remembered: without a wait, nothing else is an answer.
    use(store, "shared_wait = 0\n");
    EXPECT_EQ("300,5", askUntil("example.com", "300,5"));
    store.stop();
    // Each of these would wait for as long as it takes to find that the store is down.
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ("unknown", ask("h" + std::to_string(i)));
    EXPECT_EQ("", messages.text());
    ASSERT_TRUE(messages.waitFor(store.socketPath() + ": no reply; until it is back"));
    EXPECT_EQ("300,5", ask("example.com"));
    store.resume();
    EXPECT_EQ("44,5,300", askUntil("www.example.com/ads", "44,5,300"));
    EXPECT_TRUE(messages.waitFor("answers again"));

    // While it is down, not one waits: a single wait would be longer than all of these may take.
    use(store, "shared_wait = 5000\n");
    EXPECT_EQ("300,5", ask("example.com"));
    store.kill();
    EXPECT_EQ("unknown", ask("h0"));
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ("unknown", ask("h" + std::to_string(i)));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));

    // The next of several is asked, and the silent one not tried again before.
    StoreServer first;
    StoreServer second;
    settings("shared = " + first.address() + "," + second.socketPath() + "\nshared_wait = 0\n");
    create("HttpConnPoolSize=1;WebSecCacheMaxEntries=1000");
    EXPECT_EQ("300,5", askUntil("example.com", "300,5"));
    ASSERT_TRUE(eventually([&] { return first.probes() >= 3; }));  // two connections
    const int connections = first.connections();
    first.stop();
    EXPECT_EQ("44,5,300", askUntil("www.example.com/ads", "44,5,300"));
    first.resume();
    EXPECT_EQ(connections + 1, first.connections());
}

TEST_F(StoreTest, connectionsThatDiedUnnoticedCostNoQuestion) {
    StoreServer store;
    settings("shared = " + store.address() + "\nshared_wait = 1000\n");
    create("HttpConnPoolSize=1;WebSecCacheMaxEntries=1000");
    EXPECT_EQ("300,5", ask("example.com"));
    // Both connections have looked whether the store is there, and the one that goes on looking has done it
    // twice.
    ASSERT_TRUE(eventually([&] { return store.probes() >= 3; }));
    std::vector<int> ends;
    for (int fd = 3; fd < 256; ++fd) {
        sockaddr_un peer{};
        socklen_t size = sizeof peer;
        int pair[2];
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0 ||
            peer.sun_path != store.socketPath() ||
            socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair) != 0)
            continue;
        // What is written to it from now on stays unread. Not dup3(), for which the thread sanitizer wants a
        // lock.
        syscall(SYS_dup3, pair[0], fd, O_CLOEXEC);
        close(pair[0]);
        ends.push_back(pair[1]);
    }
    EXPECT_EQ(2U, ends.size());
    const int probes = store.probes();
    ASSERT_TRUE(eventually([&] { return store.probes() >= probes + 2; }));
    EXPECT_EQ("300,5", ask("x.example.com"));
    EXPECT_EQ("", messages.text());
    for (const int end : ends)
        close(end);
}

TEST_F(StoreTest, aSilentNameServiceIsADownStore) {
    nameServiceIsSilent = true;
    settings("shared = redis://store.test\nshared_wait = 0\n");
    create();
    EXPECT_TRUE(
        eventually([&] { return ask("h0") == "unknown" && messages.contain("store.test:6379: no reply"); }));
    nameServiceIsSilent = false;
}

TEST_F(StoreTest, foreignDataAndOtherStoresAreNoAnswer) {
    {
        const RedisServer server({"--requirepass", "secret"});
        use(server);
        EXPECT_TRUE(messages.waitFor("NOAUTH"));
        EXPECT_EQ("unknown", ask("example.com"));
        writeFile(folder / "password", "secret\r\nmore\n");
        use(server, "shared_password_file = " + folder / "password" + "\n");
        EXPECT_TRUE(messages.waitFor("it holds no catalogue; make one with katcatalog push"));
        EXPECT_EQ("unknown", ask("example.com"));
        EXPECT_EQ(std::string::npos, messages.text().find("secret"));
    }
    StoreServer store;
    // The first of the hosts that answers.
    settings("shared = " + store.address() + "x," + store.socketPath() + "\nshared_wait = 5000\n");
    create();
    const auto key = [](const char* reversed) { return "katd:h" + std::string(reversed); };
    store.run({"SET", key("foreign"), "\x07value"});
    store.run({"LPUSH", key("list"), "x"});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ("final", ask("foreign"));
        EXPECT_EQ("final", ask("list"));
    }
    EXPECT_EQ("300,5", ask("example.com"));
    EXPECT_TRUE(messages.contain("it has foreign or damaged records"));
    store.run({"SET", std::string(sharedMetaKey), "katd-store 2 x"});
    EXPECT_EQ("unknown", askUntil("h1", "unknown"));
    EXPECT_EQ("300,5", ask("example.com"));
    store.push("b", {{"example.com", {6}}});
    EXPECT_EQ("6", askUntil("example.com", "6"));
    store.run({"FLUSHALL"});
    EXPECT_EQ("unknown", askUntil("h2", "unknown"));
}

TEST_F(StoreTest, outagesUnderLoad) {
    StoreServer store;
    use(store, "shared_wait = 20\n");
    ASSERT_EQ("300,5", askUntil("example.com", "300,5"));
    std::atomic<bool> end{false};
    std::atomic<unsigned> wrong{0};
    std::array<std::atomic<unsigned>, 6> answers{};
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < answers.size(); ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; !end; ++i) {
                const bool covered = i % 2 == 0;
                const std::string answer = ask("t" + std::to_string(t) + "-" + std::to_string(i) +
                                               (covered ? ".example.com" : ".none"));
                wrong += answer != "unknown" && answer != (covered ? "300,5" : "final") ? 1U : 0U;
                ++answers[t];
            }
        });
    }
    // Every thread goes on, whatever has happened.
    const auto allGoOn = [&] {
        for (const auto& count : answers) {
            const unsigned before = count;
            if (!eventually([&] { return count > before + 2; })) return false;
        }
        return true;
    };
    for (int round = 0; round < 2; ++round) {
        store.stop();
        EXPECT_TRUE(allGoOn());
        store.resume();
        EXPECT_TRUE(allGoOn());
        store.kill();
        EXPECT_TRUE(allGoOn());
        store.start();
        EXPECT_TRUE(allGoOn());
        store.push("a", entries);
        EXPECT_EQ("300,5", askUntil("r" + std::to_string(round) + ".example.com", "300,5"));
        EXPECT_TRUE(allGoOn());
    }
    end = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0U, wrong);
}

TEST_F(StoreTest, badSettingsAreSentences) {
    const std::pair<const char*, const char*> rows[] = {
        {"shared = host", "shared is not the address of a store: it does not begin with redis://"},
        {"shared = redis://user@host", "shared has a user without a password"},
        {"shared = redis://host\nshared_wait = 5001", "shared_wait is not a number from 0 to 5000"},
        {"shared = redis://host\nshared_ttl = 1h", "shared_ttl is not a number from 1 to 2592000"},
        {"shared = redis://host\nshared_password_file = /no/where",
         "shared_password_file names a file that cannot be read or is empty"},
    };
    for (const auto& [lines, expected] : rows) {
        settings(lines + std::string("\n"));
        EXPECT_EQ(nullptr, CSDKMain_Create(""));
        EXPECT_EQ("5 " + folder / "catalog.ini" + ": " + expected, lastFailure());
    }
}

}  // namespace

#endif
