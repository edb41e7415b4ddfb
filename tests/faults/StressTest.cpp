// A disk that stays full for a while, and katd killed at any moment.
#include <gmock/gmock.h>

#include <atomic>
#include <random>
#include <thread>

#include "faults/Faults.h"
#include "faults/Inspect.h"
#include "support/Client.h"

using namespace katd_test;

namespace {

// Whether one more client gets its answer.
bool answers(const Home& home) {
    const auto reply = Client(home.socketPath()).ask("ads.example");
    return reply && reply->categories == std::vector<unsigned>{12};
}

TEST(FullDisk, StopsNothingAndIsOverWhenThereIsSpaceAgain) {
    for (const std::string full : {"write", "fwrite", "write,fwrite"}) {  // the log's, the cache's, both
        SCOPED_TRACE(full);
        const Home home;
        const std::string cache = home / "data/cache";
        home.rules("host first.example 5\nhost second.example 6\nhost third.example 7\n");
        Faults faults(home, full, ENOSPC);
        Daemon katd(home, {}, faults.environment());
        ASSERT_TRUE(katd.waitUntilServing());
        Client client(home.socketPath());
        const auto learnAndSave = [&](const std::string& url, unsigned category) {
            const auto reply = client.ask(url);
            return reply && reply->categories == std::vector{category} && client.control("save_cache");
        };
        ASSERT_TRUE(learnAndSave("first.example", 5));
        faults.armAll();
        const unsigned rounds = isLongRun() ? 2000 : 20;
        for (unsigned i = 0; i < rounds; ++i)
            ASSERT_TRUE(learnAndSave("second.example", 6));
        EXPECT_TRUE(answers(home));
        EXPECT_GE(faults.failed(), rounds);
        EXPECT_EQ(full != "fwrite", contains(katd.output(), "No space left on device\n"));
        EXPECT_EQ(full == "fwrite", contains(home.log(), "SaveWebSecCache Failed : Type=3, Code=28"));
        EXPECT_EQ(std::vector{5U}, cachedCategories(cache, "first.example"));
        EXPECT_EQ(full == "write" ? std::vector{6U} : std::vector<unsigned>(),
                  cachedCategories(cache, "second.example"));
        faults.disarm();
        ASSERT_TRUE(learnAndSave("third.example", 7));
        EXPECT_TRUE(client.control("space again"));
        EXPECT_THAT(home.log(), testing::HasSubstr("\tdebug\tUnknown ctrl request [space again]\n"));
        EXPECT_EQ(std::vector{7U}, cachedCategories(cache, "third.example"));
    }
}

TEST(SuddenEnd, LeavesAWholeCacheAndNothingInTheWayOfTheNextStart) {
    const Home home(Settings{{"size_limit", "1"}, {"log_level", "info"}});
    home.rules("prefix page.example 5\n");
    std::atomic<bool> isOver{false};
    std::thread load([&] {
        while (!isOver) {
            Client client(home.socketPath());
            for (int i = 0; !isOver && client.connected() && client.ask("page.example/" + std::to_string(i));
                 ++i) {
                if (!client.control("save_cache")) break;
            }
            usleep(1000);
        }
    });
    std::mt19937 random(1);
    bool isSaved = false;
    for (int i = 0; i < (isLongRun() ? 200 : 10); ++i) {
        SCOPED_TRACE(i);
        Daemon katd(home);
        usleep(static_cast<unsigned>(random() % 120) * 1000);
        // Now and then also before it serves.
        if (i % 4 != 0) katd.waitUntilServing();
        EXPECT_TRUE(katd.isRunning()) << katd.output() << home.log();
        katd.kill(SIGKILL);
        isSaved = isSaved || std::filesystem::exists(home / "data/cache");
        EXPECT_EQ(isSaved, cachedCategories(home / "data/cache", "").has_value());
    }
    Daemon katd(home);
    EXPECT_TRUE(katd.waitUntilServing());
    EXPECT_TRUE(answers(home));
    EXPECT_TRUE(eventually([&] { return cachedCategories(home / "data/cache", "").has_value(); }));
    isOver = true;
    load.join();
}

}  // namespace
