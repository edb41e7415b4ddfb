// The daemon as its clients see it.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <memory>
#include <thread>

#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;

namespace {

int descriptorsOf(const Daemon& katd) {
    int count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(katd.pid()) + "/fd")) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

int threadsOf(const Daemon& katd) {
    int count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(katd.pid()) + "/task")) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

TEST(Service, AnswersFromListsAndEngineOverOneConnection) {
    const Home home;
    home.rules("host forum.example 5,44\nhost new.example unknown then 9\nhost dead.example final\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client client(home.socketPath());
    const struct {
        const char* url;
        bool retried;
        std::vector<unsigned> categories;
        int matched;
    } cases[] = {
        {"http://ads.example/banner.gif", false, {12}, 1},
        {"SHOP.example/tools/saw?size=2", false, {5}, 1},
        {"http://forum.example/", false, {5, 44}, 1},
        {"new.example", true, {9}, 1},
        {"dead.example", false, {}, 1},
        {"nobody.example", false, {}, 0},
    };
    for (const auto& query : cases) {
        const auto reply = query.retried ? client.askWithRetry(query.url) : client.ask(query.url);
        ASSERT_TRUE(reply) << query.url;
        EXPECT_EQ(query.categories, reply->categories) << query.url;
        EXPECT_EQ(query.matched, reply->header.matched) << query.url;
    }
    EXPECT_TRUE(client.control("urls_stat"));
    EXPECT_THAT(home.log(), HasSubstr("All urls [4], matched from cache [2], percentage [%50]"));
}

TEST(Service, OneClientsTroubleIsNotAnothers) {
    const Home home;
    home.rules("url slow.example delay 2000 5\n");
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    Client waiting(home.socketPath());
    Client slow(home.socketPath());
    Client broken(home.socketPath());
    ASSERT_TRUE(slow.send(request("url0slow.example")));
    ASSERT_TRUE(broken.send("\x01"));
    broken.hangUp();
    EXPECT_EQ(std::vector<unsigned>{12}, waiting.ask("ads.example")->categories);
    char byte;
    EXPECT_EQ(-1, recv(slow.fd(), &byte, 1, MSG_DONTWAIT)) << "served one after the other, not side by side";
    EXPECT_EQ(std::vector<unsigned>{5}, slow.receive()->categories);
}

TEST(Service, GivesBackWhatAConnectionTook) {
    const Home home(Settings{{"log_level", "error"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    // The first connection's thread, and what a sanitizer starts, have come and gone or come to stay.
    ASSERT_TRUE(Client(home.socketPath()).ask("ads.example"));
    int threads = 0;
    ASSERT_TRUE(eventually([&] {
        const int before = threads;
        threads = threadsOf(katd);
        return threads == before;
    }));
    const int descriptors = descriptorsOf(katd);
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < 50; ++i) {
            clients.push_back(std::make_unique<Client>(home.socketPath()));
            ASSERT_TRUE(clients.back()->ask("ads.example"));
        }
        EXPECT_GE(threadsOf(katd), threads + 50);
    }
    EXPECT_TRUE(eventually([&] { return threadsOf(katd) <= threads && descriptorsOf(katd) <= descriptors; }))
        << threadsOf(katd) << " threads, " << descriptorsOf(katd) << " descriptors instead of "
        << descriptors;
}

TEST(Service, UsedUpDescriptorsDoNotEndIt) {
    const Home home;
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    const rlimit few{40, 40};
    ASSERT_EQ(0, prlimit(katd.pid(), RLIMIT_NOFILE, &few, nullptr));
    {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < 60; ++i)
            clients.push_back(std::make_unique<Client>(home.socketPath()));
        ASSERT_TRUE(eventually(
            [&] { return contains(home.log(), "In startService, accept error. [Too many open files]"); }));
    }
    EXPECT_TRUE(eventually([&] {
        Client client(home.socketPath());
        return client.connected() && client.ask("ads.example");
    }));
    EXPECT_TRUE(katd.isRunning());
}

TEST(Service, EndsInOrderWhenItsSocketCannotBeMadeAgain) {
    for (const char* url : {"slow.example", "hang.example"}) {
        SCOPED_TRACE(url);
        const Home home(Settings{{"data_conn_string", "run/katd.sock"}, {"ctengine_query_timeout", "0"}});
        home.rules("url hang.example hang\nurl slow.example delay 300 5\n");
        Daemon katd(home, {}, {{"LD_PRELOAD", FAST_CLOCK}, {"FAST_CLOCK_FAIL_ACCEPT", home / "fail"}});
        ASSERT_TRUE(eventually([&] { return Client(home / "run/katd.sock").connected(); }));
        Client busy(home / "run/katd.sock");
        Client idle(home / "run/katd.sock");
        ASSERT_TRUE(idle.ask("ads.example"));
        ASSERT_TRUE(busy.send(request(std::string("url0") + url)));
        ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", url) == 1; }));
        std::filesystem::rename(home / "run", home / "old");
        writeFile(home / "run", "in the way of the folder");
        writeFile(home / "fail", "");
        Client last(home / "old/katd.sock");
        EXPECT_EQ(0, katd.waitForExit());
        EXPECT_THAT(home.log(), HasSubstr("In startService, accept error. [Protocol error]"));
        EXPECT_THAT(home.log(),
                    HasSubstr("fail to create local socket with [" + (home / "run/katd.sock") + "][-2]"));
    }
}

TEST(Service, EveryAnswerDuringReloadsIsOfTheOldOrTheNewList) {
    const Home home(Settings{{"log_level", "error"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::atomic<int> asked{0};
    std::vector<std::thread> askers;
    for (int i = 0; i < 4; ++i) {
        askers.emplace_back([&] {
            Client client(home.socketPath());
            while (!stop) {
                const auto reply = client.ask("ads.example");
                ++asked;
                if (!reply || (reply->categories != std::vector<unsigned>{12} &&
                               reply->categories != std::vector<unsigned>{13})) {
                    ++wrong;
                }
            }
        });
    }
    Client admin(home.socketPath());
    for (int i = 0; i < 40; ++i) {
        writeFile(home / "domains.new",
                  listFile({i % 2 ? "012|ads.example" : "013|ads.example", "034|news.example"}));
        std::filesystem::rename(home / "domains.new", home / "domains.list");
        EXPECT_TRUE(admin.control("assis_reload"));
        const int seen = asked;
        eventually([&] { return asked > seen; });
    }
    stop = true;
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(std::vector<unsigned>{12}, admin.ask("ads.example")->categories);
}

TEST(Service, IgnoresHangUpsAndEndsOnAnAlarm) {
    const Home home;
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    katd.kill(SIGHUP);
    katd.kill(SIGPIPE);
    EXPECT_TRUE(Client(home.socketPath()).ask("ads.example"));
    katd.kill(SIGALRM);
    EXPECT_EQ(1, katd.waitForExit());
}

}  // namespace
