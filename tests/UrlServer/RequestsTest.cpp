#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::UrlServerInstance;

namespace {

class Requests : public ServerFixture {};

TEST_F(Requests, RefusesWhatIsNoRequestWithoutAReply) {
    const struct {
        std::string bytes;
        bool hangUp;  // after the bytes, so that the server does not wait for more
        std::string message;
    } cases[] = {
        {number(5).substr(0, 2), true, "DBG fail to read msg length from socket, ret[2]"},
        {"", true, "fail to read msg length from socket, ret[0]"},
        {number(0), false, "ERR bad url request, msglen [0] <= 0"},
        {number(0xFFFFFFFF), false, "bad url request, msglen [-1] <= 0"},
        {number(10) + "url0ab", true, "ERR fail to read msg from socket, msglen[10], ret[6]"},
        {number(5000) + "url0ab", true, "fail to read msg from socket, msglen[5000], ret[6]"},
        {request("url0"), false, "ERR bad katd msg, length too short [4]"},
        {request("u"), false, "bad katd msg, length too short [1]"},
        {request("URL0x.y"), false, "ERR Unknown katd msg prefix [URL0x.y]"},
        {number(16 * 1024 * 1024 + 1), false, "ERR fail to new char [16777218]"},
        {number(0x7FFFFFFF), false, "fail to new char [-2147483648]"},
    };
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.message);
        messages.clear();
        {
            Connection connection;
            ASSERT_TRUE(connection.client.send(bad.bytes));
            if (bad.hangUp) {
                shutdown(connection.client.fd(), SHUT_WR);
            }
            EXPECT_FALSE(connection.client.receive());
        }
        EXPECT_THAT(told(), testing::HasSubstr(bad.message));
    }
}

TEST_F(Requests, ServesRequestsSentAheadInOrderAndByteByByte) {
    home().rules("url a 7\nurl b.example/long 1,2,3\nurl c final\n");
    Connection connection;
    const std::string ahead = request("url0a") + request("ctl:urls_stat") + request("url1b.example/long") +
                              request("url0c") + request("url0nothing.example");
    for (const std::size_t piece : {ahead.size(), std::size_t{1}}) {
        for (std::size_t at = 0; at < ahead.size(); at += piece) {
            ASSERT_TRUE(connection.client.send(ahead.substr(at, piece)));
        }
        const struct {
            std::vector<unsigned> categories;
            int matched;
        } expected[] = {{{7}, 1}, {{}, 0}, {{1, 2, 3}, 1}, {{}, 1}, {{}, 0}};
        for (const auto& wanted : expected) {
            const auto reply = connection.client.receive();
            ASSERT_TRUE(reply);
            EXPECT_EQ(0, reply->header.result);
            EXPECT_EQ(wanted.categories, reply->categories);
            EXPECT_EQ(wanted.matched, reply->header.matched);
            EXPECT_EQ(0, reply->header.padding[0] | reply->header.padding[1] | reply->header.padding[2]);
        }
    }
}

TEST_F(Requests, KeepsTheLongMessageBufferUntilItIsTooSmall) {
    Connection connection;
    const struct {
        std::size_t messageSize;
        unsigned bufferSize;
    } cases[] = {{4095, 0},    {4096, 4097}, {5000, 5001}, {4500, 5001},
                 {5000, 5001}, {6000, 6001}, {100, 6001}};
    for (const auto& step : cases) {
        SCOPED_TRACE(step.messageSize);
        const std::string url = "long.example/" + std::string(step.messageSize - 17, 'x');
        home().rules("url " + url + " 9\n");
        const auto reply = connection.client.ask(url);
        ASSERT_TRUE(reply);
        EXPECT_EQ(std::vector<unsigned>{9}, reply->categories);
        EXPECT_EQ(step.bufferSize, connection.instance().largeBufferSize);
    }
}

TEST_F(Requests, AZeroByteEndsTheUrl) {
    home().rules("url a.example 3\n");
    Connection connection;
    const auto reply = connection.client.ask(std::string("a.example\0b", 11));
    ASSERT_TRUE(reply);
    EXPECT_EQ(std::vector<unsigned>{3}, reply->categories);
}

TEST_F(Requests, TellsAPeerThatDoesNotTakeItsReply) {
    UrlServerInstance unconnected(-1);
    EXPECT_EQ(-1, unconnected.handleRequests());
    EXPECT_THAT(told(), testing::HasSubstr("In handleRequests, socket < 0"));

    int fds[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
    Client client(fds[0]);
    ASSERT_TRUE(client.send(request("url0a.example")));
    client.hangUp();
    UrlServerInstance instance(fds[1]);
    EXPECT_EQ(-1, instance.handleRequests());
    EXPECT_THAT(told(), testing::HasSubstr("fail to send the url query result to katc, ret[0]"));
    close(fds[1]);
}

TEST_F(Requests, OnlyAUrlQueryCountsAsHandledAndItsUrlIsNamedMeanwhile) {
    home().rules("url slow.example delay 300 5\n");
    Connection connection;
    ASSERT_TRUE(connection.client.control("urls_stat"));
    EXPECT_FALSE(KATD_SPACE::urlSvr->handledRequest);
    ASSERT_TRUE(connection.client.ask("slow.example"));
    EXPECT_TRUE(KATD_SPACE::urlSvr->handledRequest);
    EXPECT_EQ(nullptr, connection.instance().currentUrl);
}

}  // namespace
