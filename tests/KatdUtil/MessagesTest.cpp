#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include "support/CapturedMessages.h"

namespace {

constexpr const char* logModule = "MessagesTest";

using katd_test::CapturedMessages;
using Texts = std::vector<std::string>;

void emitEachKind() {
    INFO_MSG("i");
    ERR_MSG("e");
    DBG_MSG("d");
}

TEST(Messages, LevelDecidesWhatIsShown) {
    const Texts shownAt[] = {{"INF i"}, {"INF i", "ERR e"}, {"INF i", "ERR e"}, {"INF i", "ERR e", "DBG d"}};
    int level = 0;
    for (const Texts& shown : shownAt) {
        const CapturedMessages messages(level++);
        emitEachKind();
        EXPECT_EQ(messages.texts(), shown);
        KATD_SPACE::ops.output = nullptr;
        emitEachKind();  // dropped, and no call of a null function
    }
}

Texts pieces;

TEST(Messages, ArriveAsTagTextAndLineFeedAndLeaveErrnoAlone) {
    const CapturedMessages restoring;
    pieces.clear();
    KATD_SPACE::ops.output = [](const char* piece) {
        pieces.emplace_back(piece);
        errno = EPIPE;
    };
    errno = ENOENT;
    const int line = __LINE__ + 1;
    ERR_MSG("fail %d [%m]", 5);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(pieces, (Texts{"[ERR][MessagesTest:" + std::to_string(line) + "] ",
                             "fail 5 [No such file or directory]", "\n"}));
    pieces.clear();
    INFO_MSG("%s", std::string(1023, 'x').c_str());
    EXPECT_EQ(pieces.at(1), std::string(1022, 'x'));
}

TEST(Messages, EachThreadShowsItsOwnPosition) {
    const CapturedMessages messages;
    const auto emitMany = [](bool other) {
        for (int i = 0; i < 500; ++i) {
            if (other)
                INFO_MSG("%d", __LINE__);
            else
                ERR_MSG("%d", __LINE__);
        }
    };
    std::thread other(emitMany, true);
    emitMany(false);
    other.join();
    ASSERT_EQ(messages.lines().size(), 1000U);
    for (const std::string& line : messages.lines()) {
        const std::size_t textStart = line.find("] ") + 2;
        ASSERT_NE(line.find(":" + line.substr(textStart) + "] "), std::string::npos) << line;
    }
}

}  // namespace
