#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <optional>

#include "UrlManager/UrlManager.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using katd_test::CapturedMessages;

class Manager : public testing::Test {
protected:
    Manager() {
        // The old and the new lists give different categories to the same texts.
        for (const std::string category : {"001", "002"}) {
            std::string lines = "300|5100\n";
            for (int i = 100; i < 400; ++i)
                lines += category + "|host" + std::to_string(i) + ".test\n";
            katd_test::writeFile(category == "001" ? oldList : newList, lines);
        }
    }
    bool reload(const std::string& path) { return manager.reloadUrlList(path.c_str(), path.c_str()); }
    std::optional<std::uint32_t> lookUp(std::string url = "http://host200.test/x") {
        std::uint32_t category = 77;
        if (manager.getUrlCategory(url.data(), &category)) return category;
        EXPECT_EQ(category, 77U);
        return std::nullopt;
    }

    katd_test::TempDir dir;
    const std::string oldList = dir / "old", newList = dir / "new", missing = dir / "missing";
    KATD_SPACE::UrlManager manager;
};

TEST_F(Manager, FirstLoadMayBeTriedAgainAndLaterOnesTakeEffectWithoutFiles) {
    CapturedMessages messages;
    const std::string both = "[" + missing + "] [" + missing + "]";
    EXPECT_FALSE(reload(missing));
    EXPECT_EQ(messages.texts().front(), "DBG In reloadUrlList, active_container is null, do load url ");
    EXPECT_EQ(messages.texts().back(), "DBG fail to load url pattern from " + both);
    EXPECT_EQ(lookUp(), std::nullopt);
    EXPECT_TRUE(reload(oldList));
    EXPECT_EQ(lookUp(), 1U);
    EXPECT_TRUE(reload(missing));
    EXPECT_EQ(messages.texts().back(), "DBG fail to reload url pattern from " + both);
    EXPECT_EQ(lookUp(), std::nullopt);
    messages.clear();
    EXPECT_TRUE(reload(newList));
    EXPECT_EQ(lookUp(), 2U);
    EXPECT_EQ(messages.texts().back(), "DBG Url matched [host200.test]");
    EXPECT_EQ(messages.texts().size(), 5U);  // no failure among them
}

// A look-up can be held where it reports its match.
std::promise<void> matched, mayGoOn;

void holdAtMatch(const char* text) {
    if (std::strncmp(text, "Url matched", 11) != 0) return;
    matched.set_value();
    mayGoOn.get_future().wait();
}

TEST_F(Manager, ReloadIsRefusedWhileALookUpUsesTheIdleLists) {
    ASSERT_TRUE(reload(oldList));
    const CapturedMessages messages;
    const auto capture = KATD_SPACE::ops.output;
    matched = {};
    mayGoOn = {};
    KATD_SPACE::ops.output = holdAtMatch;
    auto running = std::async(std::launch::async, [this] { return lookUp(); });
    matched.get_future().wait();
    KATD_SPACE::ops.output = capture;

    EXPECT_TRUE(reload(newList));  // the look-up goes on in the old lists
    EXPECT_EQ(lookUp(), 2U);
    EXPECT_FALSE(reload(oldList));
    EXPECT_EQ(messages.texts().back(), "INF There is no idle url container");
    EXPECT_TRUE(manager.first.loaded);

    mayGoOn.set_value();
    EXPECT_EQ(running.get(), 1U);
    EXPECT_FALSE(manager.first.loaded);  // the last look-up has emptied them
    EXPECT_TRUE(reload(oldList));
    EXPECT_FALSE(manager.second.loaded);  // here the reload has
    EXPECT_EQ(lookUp(), 1U);
}

// The priorities of the threads that read a list; setpriority(2) can make them lower, not higher.
std::atomic<int> readersPriority{-100};

TEST_F(Manager, ReloadReadsAtALowerPriorityAndLeavesTheCallersAsItIs) {
    const CapturedMessages messages;
    ASSERT_TRUE(reload(oldList));
    const int priority = getpriority(PRIO_PROCESS, 0);
    KATD_SPACE::ops.output = [](const char* text) {
        if (std::strncmp(text, "first line of", 13) == 0) readersPriority = getpriority(PRIO_PROCESS, 0);
    };
    EXPECT_TRUE(reload(newList));
    EXPECT_EQ(readersPriority, std::min(priority + 10, 19));
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), priority);
    EXPECT_EQ(lookUp(), 2U);
}

TEST_F(Manager, EveryAnswerDuringReloadsIsOldOrNew) {
    ASSERT_TRUE(reload(oldList));
    std::atomic<bool> stop{false};
    std::atomic<int> answers{0};
    std::vector<std::future<bool>> right;
    for (int thread = 0; thread < 4; ++thread) {
        right.push_back(std::async(std::launch::async, [&, thread] {
            for (int i = thread; !stop; ++i, ++answers) {
                const auto category = lookUp("host" + std::to_string(100 + i % 300) + ".test/%41");
                if (category != 1U && category != 2U) return false;
            }
            return true;
        }));
    }
    for (int i = 0; i < 100 || (answers < 500 && i < 10000); ++i)
        reload(i % 2 == 0 ? newList : oldList);
    stop = true;
    for (std::future<bool>& each : right)
        EXPECT_TRUE(each.get());
    EXPECT_EQ(manager.first.users + manager.second.users, 0);
    EXPECT_NE(manager.first.loaded, manager.second.loaded);
}

}  // namespace
