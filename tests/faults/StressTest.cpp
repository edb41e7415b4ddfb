// katd under stress: full disks, many clients, rude ones, sudden ends. Short unless
// KATD_TESTS_LONG is set.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "faults/Faults.h"
#include "faults/Inspect.h"
#include "support/Client.h"

using namespace katd_test;
using testing::HasSubstr;
using testing::Not;

namespace {

int shortOrLong(int shortRun, int longRun) {
    return isLongRun() ? longRun : shortRun;
}

// Does something again and again in threads of its own until it is stopped.
class Load {
public:
    template <class Body>
    Load(int threads, Body body) {
        for (int i = 0; i < threads; ++i) {
            threads_.emplace_back([this, body, i] {
                while (!stopped_)
                    body(i);
            });
        }
    }
    ~Load() { stop(); }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    void stop() {
        stopped_ = true;
        for (std::thread& thread : threads_)
            thread.join();
        threads_.clear();
    }

private:
    std::atomic<bool> stopped_{false};
    std::vector<std::thread> threads_;
};

// Whether one more client gets its answer.
bool answers(const Home& home) {
    const auto reply = Client(home.socketPath()).ask("ads.example");
    return reply && reply->categories == std::vector<unsigned>{12};
}

// What katd has before the clients come and must have when they are gone.
class Base {
public:
    Base(const Daemon& katd, const Home& home) : katd_(katd), home_(home) {
        EXPECT_TRUE(answers(home));  // whoever connected before has been accepted by then
        EXPECT_TRUE(eventually([&] { return threadsOf(katd) == IDLE_THREADS; })) << threadsOf(katd);
        descriptors_ = descriptorsOf(katd, home);
    }
    void expectReached() const {
        EXPECT_TRUE(eventually([&] {
            return threadsOf(katd_) == IDLE_THREADS && descriptorsOf(katd_, home_) == descriptors_;
        })) << threadsOf(katd_)
            << " threads, " << testing::PrintToString(descriptorsOf(katd_, home_));
    }

private:
    const Daemon& katd_;
    const Home& home_;
    std::multiset<std::string> descriptors_;
};

TEST(FullDisk, StopsNothingAndIsOverWhenThereIsSpaceAgain) {
    for (const char* full : {"write", "fwrite", "write,fwrite"}) {  // the log's, the cache's, both
        SCOPED_TRACE(full);
        const bool logIsFull = full[0] == 'w';
        const bool cacheIsFull = std::string(full) != "write";
        const Home home;
        home.rules("host first.example 5\nhost second.example 6\nhost third.example 7\n");
        Faults faults(home, full, ENOSPC);
        Daemon katd(home, {}, faults.environment());
        ASSERT_TRUE(katd.waitUntilServing());
        Client client(home.socketPath());
        EXPECT_EQ(std::vector<unsigned>{5}, client.ask("first.example")->categories);
        EXPECT_TRUE(client.control("save_cache"));

        faults.armAll();
        const int rounds = shortOrLong(20, 2000);
        for (int i = 0; i < rounds; ++i) {
            ASSERT_EQ(std::vector<unsigned>{6}, client.ask("second.example")->categories);
            ASSERT_TRUE(client.control("save_cache"));
        }
        EXPECT_GE(faults.failed(), static_cast<unsigned>(rounds));
        EXPECT_TRUE(answers(home));
        EXPECT_TRUE(client.control("full"));
        EXPECT_EQ(logIsFull, !contains(home.log(), "Unknown ctrl request [full]"));
        EXPECT_EQ(logIsFull, contains(katd.output(), "No space left on device\n"));
        EXPECT_EQ(cacheIsFull && !logIsFull,
                  contains(home.log(), "SaveWebSecCache Failed : Type=3, Code=28"));
        EXPECT_EQ(std::vector<unsigned>{5}, cachedCategories(home / "data/cache", "first.example"));
        EXPECT_EQ(cacheIsFull, cachedCategories(home / "data/cache", "second.example").empty());

        faults.disarm();
        EXPECT_EQ(std::vector<unsigned>{7}, client.ask("third.example")->categories);
        EXPECT_TRUE(client.control("save_cache"));
        EXPECT_TRUE(client.control("space again"));
        EXPECT_THAT(home.log(), HasSubstr("\tdebug\tUnknown ctrl request [space again]\n"));
        EXPECT_EQ(std::vector<unsigned>{7}, cachedCategories(home / "data/cache", "third.example"));
    }
}

class ManyClients : public testing::Test {
protected:
    ManyClients() : home_(Settings{{"log_level", "error"}}), katd_(home_) {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_TRUE(katd_.waitUntilServing());
    }
    void oneAfterTheOther(int number) const {
        for (int i = 0; i < number; ++i)
            ASSERT_TRUE(answers(home_)) << i;
    }
    void atOnce(int number) const {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < number; ++i) {
            clients.push_back(std::make_unique<Client>(home_.socketPath()));
            ASSERT_TRUE(clients.back()->connected()) << i;
        }
        for (const auto& client : clients)
            ASSERT_EQ(std::vector<unsigned>{12}, client->ask("ads.example")->categories);
        EXPECT_EQ(IDLE_THREADS + static_cast<std::size_t>(number), threadsOf(katd_));
    }

    const Home home_;
    Daemon katd_;
};

TEST_F(ManyClients, LeaveNothingBehind) {
    const Base base(katd_, home_);
    const int crowd = shortOrLong(200, 1000);
    const int row = shortOrLong(500, 10000);
    // What the C library keeps of the first crowd serves the next ones.
    atOnce(crowd);
    oneAfterTheOther(row / 10);
    base.expectReached();
    const Memory before = memoryOf(katd_);
    for (int round = 0; round < 3; ++round) {
        atOnce(crowd);
        oneAfterTheOther(row);
        base.expectReached();
    }
#ifdef FAULT_MALLOC
    const Memory after = memoryOf(katd_);
    EXPECT_LE(after.residentKiB, before.residentKiB + 1024);
    EXPECT_LE(after.sizeKiB, before.sizeKiB + before.sizeKiB / 10);
#else
    static_cast<void>(before);
#endif
}

TEST_F(ManyClients, RudeOnesAreNobodyElsesTrouble) {
    const Base base(katd_, home_);
    {
        const int pauseMs = shortOrLong(20, 1000);
        std::vector<std::unique_ptr<Client>> silent;
        for (int i = 0; i < 20; ++i)
            silent.push_back(std::make_unique<Client>(home_.socketPath()));
        // Replies that nobody reads fill the way back, then requests the way there.
        Client deaf(home_.socketPath());
        fcntl(deaf.fd(), F_SETFL, O_NONBLOCK);
        int unread = 0;
        const std::string question = request("url0ads.example");
        EXPECT_TRUE(eventually([&] {
            while (deaf.send(question))
                ++unread;
            usleep(10000);
            return !deaf.send(question.substr(0, 1));
        }));
        EXPECT_GT(unread, 0);
        Client slow(home_.socketPath());
        for (const char byte : question) {
            ASSERT_TRUE(slow.send(std::string(1, byte)));
            EXPECT_TRUE(answers(home_));
            usleep(static_cast<unsigned>(pauseMs) * 1000);
        }
        EXPECT_EQ(std::vector<unsigned>{12}, slow.receive()->categories);
    }
    base.expectReached();
}

TEST(LockedLog, HoldsUpOnlyWhoHasSomethingToSay) {
    for (const char* level : {"error", "debug"}) {
        SCOPED_TRACE(level);
        const Home home(Settings{{"log_level", level}});
        home.rules("host forum.example 5\n");
        Daemon katd(home);
        ASSERT_TRUE(katd.waitUntilServing());
        Client client(home.socketPath());
        ASSERT_TRUE(client.ask("forum.example"));
        const int lockFile = open(("/tmp/" + home.logName() + ".lock").c_str(), O_RDWR | O_CLOEXEC);
        struct flock whole {};
        whole.l_type = F_WRLCK;
        ASSERT_EQ(0, fcntl(lockFile, F_SETLKW, &whole));
        const int asked = home.engineCalls("CSDKMain_ClassifyUrl");
        if (level == std::string("error")) {
            for (int i = 0; i < 100; ++i) {
                EXPECT_EQ(std::vector<unsigned>{5}, client.ask("forum.example")->categories);
                EXPECT_TRUE(answers(home));
            }
        } else {
            ASSERT_TRUE(client.send(request("url0forum.example")));
            ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKUrlCat_GetCategories") == asked; }));
            usleep(100000);
            char byte;
            EXPECT_EQ(-1, recv(client.fd(), &byte, 1, MSG_DONTWAIT)) << "it did not wait for the log";
            close(lockFile);
            EXPECT_EQ(std::vector<unsigned>{5}, client.receive()->categories);
        }
        close(lockFile);
        EXPECT_TRUE(answers(home));
    }
}

TEST(SuddenEnd, LeavesAWholeCacheAndNothingInTheWayOfTheNextStart) {
    const Home home(Settings{{"size_limit", "1"}, {"log_level", "info"}});
    home.rules("prefix page.example 5\n");
    std::mt19937 random(1);
    std::uniform_int_distribution<unsigned> pauseMs(0, 120);
    const Load load(3, [&](int thread) {
        Client client(home.socketPath());
        for (int i = 0; client.connected() && client.ask("page.example/" + std::to_string(i)); ++i) {
            if (thread == 0 && !client.control("save_cache")) break;
        }
        usleep(1000);
    });
    bool isSaved = false;
    const int ends = shortOrLong(10, 200);
    for (int i = 0; i < ends; ++i) {
        SCOPED_TRACE(i);
        Daemon katd(home);
        usleep(pauseMs(random) * 1000);
        // Now and then also before it serves.
        if (i % 4 != 0) {
            ASSERT_TRUE(katd.waitUntilServing());
        }
        ASSERT_TRUE(katd.isRunning()) << katd.output() << home.log();
        katd.kill(SIGKILL);
        isSaved = isSaved || std::filesystem::exists(home / "data/cache");
        ASSERT_EQ(isSaved, isWholeCache(home / "data/cache"));
    }
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    EXPECT_TRUE(answers(home));
    EXPECT_TRUE(eventually([&] { return isWholeCache(home / "data/cache"); }));
}

TEST(SharedLogName, NothingIsLostUnderLoad) {
    constexpr int ROTATED = 2000;
    constexpr int CLIENTS = 4;
    const int messages = shortOrLong(25, 1000);
    const Settings settings{{"size_limit", "4"}, {"rotation_number", std::to_string(ROTATED)}};
    const Home first(settings);
    Settings others = settings;
    others["log_file_path"] = "log/" + first.logName();
    const Home second(others);
    Daemon one(first);
    Daemon two(second);
    ASSERT_TRUE(one.waitUntilServing());
    ASSERT_TRUE(two.waitUntilServing());
    std::vector<std::thread> clients;
    for (int n = 0; n < 2 * CLIENTS; ++n) {
        clients.emplace_back([&, n] {
            Client client((n % 2 == 0 ? first : second).socketPath());
            for (int i = 0; i < messages; ++i)
                EXPECT_TRUE(client.control(std::to_string(n) + " says " + std::to_string(i)));
        });
    }
    for (std::thread& client : clients)
        client.join();
    for (int n = 0; n < 2 * CLIENTS; ++n) {
        static std::string logs[2];
        if (n < 2) logs[n] = wholeLog((n == 0 ? first : second) / ("log/" + first.logName()), ROTATED);
        std::size_t at = 0;
        for (int i = 0; i < messages; ++i) {
            const std::string record =
                "\tdebug\tUnknown ctrl request [" + std::to_string(n) + " says " + std::to_string(i) + "]\n";
            at = logs[n % 2].find(record, at);
            ASSERT_NE(std::string::npos, at) << record << " is lost or out of order";
        }
    }
}

TEST(Reload, EveryFiftyMillisecondsUnderFullLoad) {
    const Home home(Settings{{"log_level", "error"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    std::atomic<int> answered{0};
    std::atomic<int> wrong{0};
    const auto ask = [&](int) {
        Client client(home.socketPath());
        for (int i = 0; i < 50; ++i) {
            const auto reply = client.ask("ads.example");
            const bool isRight = reply && reply->header.matched == 1 && reply->categories.size() == 1 &&
                                 (reply->categories[0] == 12 || reply->categories[0] == 13);
            ++(isRight ? answered : wrong);
        }
    };
    {
        const Load load(4, ask);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(shortOrLong(2, 60));
        Client admin(home.socketPath());
        for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
            writeFile(home / "new", listFile({i % 2 ? "012|ads.example" : "013|ads.example"}));
            std::filesystem::rename(home / "new", home / "domains.list");
            ASSERT_TRUE(admin.control("assis_reload"));
            usleep(50000);
        }
    }
    EXPECT_EQ(0, wrong);
    EXPECT_GT(answered, 0);
}

}  // namespace
