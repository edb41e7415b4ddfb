#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "support/CapturedMessages.h"
#include "support/TempDir.h"
#include "support/Ticks.h"

namespace {

using KATD_SPACE::Utils;
using katd_test::CapturedMessages;
using Texts = std::vector<std::string>;

TEST(Sockets, ServiceNeedsAPathOfAtMost107CharactersAndReplacesWhatIsThere) {
    const katd_test::TempDir dir;
    const CapturedMessages messages;
    std::string path = dir / "new/folder/";
    path.resize(107, 's');
    const int first = Utils::createLocalTcpService(path.c_str(), 4);
    const int second = Utils::createLocalTcpService(path.c_str(), 4);
    const int client = Utils::connectLocalTcp(path.c_str());
    for (const int fd : {first, second, client}) {
        ASSERT_GE(fd, 0);
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        close(fd);
    }
    EXPECT_EQ(messages.texts(), Texts{});
    EXPECT_EQ(Utils::connectLocalTcp(path.c_str()), -1);  // the file remains, nobody listens
    const std::string tooLong = path + "s";
    EXPECT_EQ(Utils::createLocalTcpService(tooLong.c_str(), 4), -1);
    EXPECT_EQ(Utils::connectLocalTcp(tooLong.c_str()), -1);
    const std::string belowSocket = dir / "new/file/s";
    katd_test::writeFile(dir / "new/file", "");
    EXPECT_EQ(Utils::createLocalTcpService(belowSocket.c_str(), 4), -2);
    EXPECT_EQ(messages.texts(),
              (Texts{"DBG Fail to connect local socket service [" + path + "], [Connection refused]",
                     "ERR [" + tooLong + "] is too long, can not create local tcp service with it",
                     "ERR [" + tooLong + "] is too long, can not connect to local tcp service with it",
                     "ERR fail to bind socket fd to [" + belowSocket + "][Not a directory]"}));
}

class SocketPair : public testing::Test {
protected:
    SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }
    ~SocketPair() override {
        close(ends[0]);
        closePeer();
    }
    void closePeer() {
        if (ends[1] >= 0) close(ends[1]);
        ends[1] = -1;
    }

    int ends[2] = {-1, -1};  // ours and the peer's
    CapturedMessages messages;
    char buffer[4] = {};
};

TEST_F(SocketPair, ReadTellsAnEndFromAnError) {
    ASSERT_EQ(write(ends[1], "ab", 2), 2);
    closePeer();
    EXPECT_EQ(Utils::readn(ends[0], buffer, 4), 2U);
    EXPECT_EQ(messages.texts(), Texts{"DBG connection is closed"});
    EXPECT_EQ(Utils::readn(ends[0], buffer, 0), 0U);
    EXPECT_EQ(Utils::readn(-1, buffer, 4), 0U);
    EXPECT_EQ(messages.texts().back(), "ERR In readn, fd < 0");
}

TEST_F(SocketPair, ReadErrorIsNothingReadEvenAfterAPart) {
    ASSERT_EQ(write(ends[0], "x", 1), 1);  // what the peer leaves unread makes its close a reset
    ASSERT_EQ(write(ends[1], "ab", 2), 2);
    closePeer();
    EXPECT_EQ(Utils::readn(ends[0], buffer, 4), 0U);
    EXPECT_EQ(messages.texts(), Texts{"DBG connection is closed[Connection reset by peer]"});
}

TEST_F(SocketPair, WriteToAClosedPeerFails) {
    const auto oldHandler = std::signal(SIGPIPE, SIG_IGN);
    closePeer();
    EXPECT_EQ(Utils::writen(ends[0], "abcd", 4), 0U);
    EXPECT_EQ(Utils::writen(ends[0], "", 0), 0U);
    EXPECT_EQ(messages.texts(), Texts{"ERR connection is closed[Broken pipe]"});
    std::signal(SIGPIPE, oldHandler);
}

TEST_F(SocketPair, SignalsInterruptNeitherReadingNorWriting) {
    std::string sent(1 << 21, '\0');  // more than a socket holds: a write waits for the reader
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<char>(i * 7 / 5);
    const unsigned size = static_cast<unsigned>(sent.size());
    std::string received(sent.size(), '\0');
    const katd_test::Ticks ticks;
    std::thread peer([&] {
        ticks.blockInThisThread();
        const auto waitForTicks = [] {
            const int until = katd_test::Ticks::count + 20;
            while (katd_test::Ticks::count < until)
                std::this_thread::yield();
        };
        waitForTicks();
        EXPECT_EQ(write(ends[1], "ab", 2), 2);
        waitForTicks();
        EXPECT_EQ(write(ends[1], "cd", 2), 2);
        waitForTicks();  // by now the writer waits, with nothing of its last call written
        EXPECT_EQ(Utils::readn(ends[1], received.data(), size), size);
    });
    EXPECT_EQ(Utils::readn(ends[0], buffer, 4), 4U);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    EXPECT_EQ(Utils::writen(ends[0], sent.data(), size), size);
    shutdown(ends[0], SHUT_WR);  // lets the peer end where not all came
    peer.join();
    EXPECT_TRUE(received == sent);
    EXPECT_EQ(messages.texts(), Texts{});
}

}  // namespace
