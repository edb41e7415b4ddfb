#include <fcntl.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::UrlServerInstance;

namespace {

class Requests : public ServerFixture {
protected:
    Requests() { signal(SIGXFSZ, SIG_IGN); }

    static std::string reply(const std::vector<unsigned char>& categories, char matched = 1) {
        return number(0) + number(static_cast<std::uint32_t>(categories.size())) +
               std::string{matched, 0, 0, 0} + std::string(categories.begin(), categories.end());
    }
};

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
    const std::string zeroByte("url0a\0b", 7);
    Connection connection;
    const std::string ahead = request("url0a") + request("ctl:urls_stat") + request("url1b.example/long") +
                              request("url0c") + request("url0nothing.example") + request(zeroByte);
    for (const std::size_t piece : {ahead.size(), std::size_t{1}}) {
        for (std::size_t at = 0; at < ahead.size(); at += piece) {
            ASSERT_TRUE(connection.client.send(ahead.substr(at, piece)));
        }
        const struct {
            std::vector<unsigned> categories;
            int matched;
        } expected[] = {{{7}, 1}, {{}, 0}, {{1, 2, 3}, 1}, {{}, 1}, {{}, 0}, {{7}, 1}};
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

// A socket that keeps the borders of its packets shows what goes out in one write.
TEST_F(Requests, RepliesToWhatIsAlreadyThereGoOutTogetherButNeverWait) {
    home().rules("url asked 7\n");
    const std::string listed = request("url0ads.example"), hit = reply({12}), asked = request("url1asked");
    std::string many, allOfMany;
    for (int i = 0; i < 160; ++i) {
        many += listed;
        allOfMany += hit;
    }
    const struct {
        std::string packet;
        std::vector<std::string> replies;
    } cases[] = {
        {listed, {hit}},
        {listed + listed + listed, {hit + hit + hit}},
        {listed + asked + listed, {hit, reply({7}) + hit}},
        {listed + request("ctl:urls_stat") + listed, {hit, reply({}, 0) + hit}},
        {listed + listed + number(8) + "url0", {hit + hit}},
        {many, {allOfMany.substr(0, 1781), allOfMany.substr(1781)}},
        {listed + number(0), {hit}},
        {listed + request("url") + listed, {hit}},
        {listed + request("url2x") + listed, {hit}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.packet);
        int fds[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds));
        Client client(fds[0]);
        ASSERT_TRUE(client.send(one.packet));
        shutdown(client.fd(), SHUT_WR);
        EXPECT_EQ(-1, UrlServerInstance(fds[1]).start());
        close(fds[1]);
        std::vector<std::string> packets;
        char packet[4096];
        for (ssize_t size = 0; (size = recv(client.fd(), packet, sizeof packet, 0)) > 0;)
            packets.emplace_back(packet, static_cast<std::size_t>(size));
        EXPECT_EQ(one.replies, packets);
    }
    // By itself a request is read as it is, and answered before the next one is touched.
    int fds[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
    Client client(fds[0]);
    ASSERT_TRUE(client.send(listed + listed));
    UrlServerInstance instance(fds[1]);
    for (int left : {1, 0}) {
        EXPECT_EQ(0, instance.handleRequests());
        ASSERT_TRUE(client.receive());
        int unread = 0;
        ioctl(fds[1], FIONREAD, &unread);
        EXPECT_EQ(left * static_cast<int>(listed.size()), unread);
    }
    close(fds[1]);
}

TEST_F(Requests, KeepsTheLongMessageBufferUntilItIsTooSmall) {
    Connection connection;
    const struct {
        std::size_t messageSize;
        unsigned bufferSize;
    } cases[] = {{4095, 0},    {4096, 4097}, {5000, 5001}, {4500, 5001},
                 {5000, 5001}, {5001, 5002}, {100, 5002}};
    for (const auto& step : cases) {
        SCOPED_TRACE(step.messageSize);
        const std::string url = "long.example/" + std::string(step.messageSize - 17, 'x');
        home().rules("url " + url + " 9\n");
        const auto reply = connection.client.ask(url);
        ASSERT_TRUE(reply);
        EXPECT_EQ(std::vector<unsigned>{9}, reply->categories);
        EXPECT_EQ(step.bufferSize, connection.instance().largeBufferSize);
        EXPECT_LE(step.bufferSize, malloc_usable_size(connection.instance().largeBuffer));
    }
}

TEST_F(Requests, RetriesEndWhenTheClientHangsUpButNotWhenItHasOnlyEndedItsRequests) {
    home().rules("url known unknown then 5\n");
    KATD_SPACE::ops.conf.setQueryTimeout(0xFFFFFFFF, 1);
    {
        Connection halfClosed;
        ASSERT_TRUE(halfClosed.client.send(request("url1known")));
        shutdown(halfClosed.client.fd(), SHUT_WR);
        EXPECT_EQ(std::vector<unsigned>{5}, halfClosed.client.receive()->categories);
    }
    for (const unsigned interval : {1u, 0xFFFFFFFFu}) {
        KATD_SPACE::ops.conf.setQueryTimeout(0xFFFFFFFF, interval);
        Connection gone;
        ASSERT_TRUE(gone.client.send(request("url1nothing.example")));
    }
}

TEST_F(Requests, TellsAPeerThatDoesNotTakeItsReply) {
    UrlServerInstance unconnected(-1);
    EXPECT_EQ(-1, unconnected.handleRequests());
    EXPECT_THAT(told(), testing::HasSubstr("In handleRequests, socket < 0"));

    // A file that may not grow takes a part of the replies: which one is cut off, and where, decides the
    // message. The requests stand in the file itself.
    const std::string requests = request("url0ads.example") + request("url0ads.example");
    const struct {
        unsigned taken;
        std::string message;
    } cases[] = {{0, "result to"},  {11, "result to"}, {12, "categories to"},
                 {13, "result to"}, {24, "result to"}, {25, "categories to"}};
    const std::string path = home().path() + "/requests";
    for (const auto& one : cases) {
        SCOPED_TRACE(one.taken);
        messages.clear();
        writeFile(path, requests);
        const int fd = open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
        rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        rlimit limit = before;
        limit.rlim_cur = requests.size() + one.taken;
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(-1, UrlServerInstance(fd).start());
        setrlimit(RLIMIT_FSIZE, &before);
        close(fd);
        EXPECT_EQ(requests.size() + one.taken, readFile(path).size());
        std::string expected = "fail to send the url query " + one.message + " katc, ret[0]\n";
        EXPECT_THAT(told(), testing::EndsWith(expected));
    }
}

}  // namespace
