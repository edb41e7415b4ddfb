#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "support/CapturedMessages.h"
#include "support/TempDir.h"
#include "support/Ticks.h"

namespace {

using KATD_SPACE::Utils;
using namespace katd_test;

TEST(Sockets, ServiceNeedsAPathOfAtMost107CharactersAndReplacesWhatIsThere) {
    const TempDir dir;
    const CapturedMessages messages;
    std::string path = dir / "new/folder/";
    path.resize(107, 's');
    for (int round = 0; round < 2; ++round) {
        const int service = Utils::createLocalTcpService(path.c_str(), 4);
        const int client = Utils::connectLocalTcp(path.c_str());
        for (const int fd : {service, client}) {
            ASSERT_GE(fd, 0);
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
            close(fd);
        }
    }
    EXPECT_EQ(Utils::connectLocalTcp(path.c_str()), -1);  // the file remains without a listener
    const std::string tooLong = path + "s", inTheWay = dir / "new/file";
    EXPECT_EQ(Utils::createLocalTcpService(tooLong.c_str(), 4), -1);
    EXPECT_EQ(Utils::connectLocalTcp(tooLong.c_str()), -1);
    writeFile(inTheWay, "");
    EXPECT_EQ(Utils::createLocalTcpService((inTheWay + "/s").c_str(), 4), -2);
    EXPECT_EQ(messages.texts().back(), "ERR fail to bind socket fd to [" + inTheWay + "/s][Not a directory]");
}

class SocketPair : public testing::Test {
protected:
    SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }
    ~SocketPair() override { close(ends[0]); }

    int ends[2] = {-1, -1};  // ours and the peer's, which the test closes
    CapturedMessages messages;
    char buffer[4] = {};
};

TEST_F(SocketPair, EndsAndErrorsAreReported) {
    ASSERT_EQ(write(ends[0], "x", 1), 1);  // what the peer leaves unread makes its close a reset
    ASSERT_EQ(write(ends[1], "ab", 2), 2);
    close(ends[1]);
    EXPECT_EQ(Utils::readn(ends[0], buffer, 4), 0U);  // although a part was read
    EXPECT_EQ(Utils::readn(ends[0], buffer, 4), 0U);
    const auto oldHandler = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(Utils::writen(ends[0], "abcd", 4), 0U);
    std::signal(SIGPIPE, oldHandler);
    EXPECT_EQ(messages.texts(), (Texts{"DBG connection is closed[Connection reset by peer]",
                                       "DBG connection is closed", "ERR connection is closed[Broken pipe]"}));
}

TEST_F(SocketPair, SignalsInterruptNeitherReadingNorWriting) {
    std::string sent(1 << 21, '\0');  // more than a socket holds: a write waits for the reader
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<char>(i * 7 / 5);
    const unsigned size = static_cast<unsigned>(sent.size());
    std::string received(sent.size(), '\0');
    const Ticks ticks;
    std::thread peer([&] {
        ticks.blockInThisThread();
        const auto waitForTicks = [] {
            const int until = Ticks::count + 20;
            while (Ticks::count < until)
                std::this_thread::yield();
        };
        for (const char* piece : {"ab", "cd"}) {
            waitForTicks();
            EXPECT_EQ(write(ends[1], piece, 2), 2);
        }
        waitForTicks();  // by now the writer waits, with nothing of its last call written
        EXPECT_EQ(Utils::readn(ends[1], received.data(), size), size);
        close(ends[1]);
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
