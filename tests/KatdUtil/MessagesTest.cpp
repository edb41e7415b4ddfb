#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "support/CapturedMessages.h"

namespace {

constexpr const char* logModule = "MessagesTest";

using namespace katd_test;

TEST(Messages, LevelDecidesWhatIsShown) {
    const Texts shownAt[] = {{"INF i"}, {"INF i", "ERR e"}, {"INF i", "ERR e"}, {"INF i", "ERR e", "DBG d"}};
    for (int level = 0; level < 4; ++level) {
        const CapturedMessages messages(level);
        INFO_MSG("i");
        ERR_MSG("e");
        DBG_MSG("d");
        EXPECT_EQ(messages.texts(), shownAt[level]);
    }
}

Texts pieces;

TEST(Messages, ArriveAsTagTextAndLineFeedAndLeaveErrnoAlone) {
    const CapturedMessages restoring;
    KATD_SPACE::ops.output = [](const char* piece) {
        pieces.emplace_back(piece);
        errno = EPIPE;
    };
    errno = ENOENT;
    ERR_MSG("fail %d [%m]", 5);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(pieces.at(1), "fail 5 [No such file or directory]");
    INFO_MSG("%s", std::string(1023, 'x').c_str());
    EXPECT_EQ(pieces.at(4), std::string(1022, 'x'));
}

TEST(Messages, EachThreadShowsItsOwnPosition) {
    const CapturedMessages messages;
    const auto emitInAnotherThread = [](int line) {
        std::thread([] { INFO_MSG("other"); }).join();
        return line;
    };
    INFO_MSG("%d", emitInAnotherThread(__LINE__));  // between its position and its text
    const std::string line = messages.lines().back(), text = line.substr(line.find("] ") + 2);
    EXPECT_EQ(line, "[INF][MessagesTest:" + text + "] " + text);
}

}  // namespace
