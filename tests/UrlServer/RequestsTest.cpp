#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>

#include <atomic>

#include "UrlServer/ServerFixture.h"
#include "UrlServer/Watchdog.h"

using namespace katd_test;
using KATD_SPACE::LateCall;
using KATD_SPACE::UrlServerInstance;
using KATD_SPACE::Watchdog;

namespace {

class Requests : public ServerFixture {
protected:
    Requests() { signal(SIGXFSZ, SIG_IGN); }

    static std::string reply(const std::vector<unsigned char>& categories, char matched = 1) {
        return number(0) + number(static_cast<std::uint32_t>(categories.size())) +
               std::string{matched, 0, 0, 0} + std::string(categories.begin(), categories.end());
    }
    const std::string listed = request("url0ads.example"), hit = reply({12});

    // What a connection sends to these requests, write by write: its socket keeps the borders.
    static std::vector<std::string> writesTo(const std::string& requests) {
        int serverEnd = -1;
        Client client(socketPair(&serverEnd, SOCK_SEQPACKET));
        EXPECT_TRUE(client.send(requests));
        shutdown(client.fd(), SHUT_WR);
        EXPECT_EQ(-1, UrlServerInstance(serverEnd).start());
        close(serverEnd);
        std::vector<std::string> packets;
        char packet[4096];
        for (ssize_t size = 0; (size = recv(client.fd(), packet, sizeof packet, 0)) > 0;)
            packets.emplace_back(packet, static_cast<std::size_t>(size));
        return packets;
    }
};

TEST_F(Requests, WhatIsNoRequestGetsNoReply) {
    const std::pair<std::string, const char*> cases[] = {
        {number(5).substr(0, 2), "DBG fail to read msg length from socket, ret[2]"},
        {"", "fail to read msg length from socket, ret[0]"},
        {number(0), "ERR bad url request, msglen [0] <= 0"},
        {number(0xFFFFFFFF), "bad url request, msglen [-1] <= 0"},
        {number(10) + "url0ab", "ERR fail to read msg from socket, msglen[10], ret[6]"},
        {number(5000) + "url0ab", "fail to read msg from socket, msglen[5000], ret[6]"},
        {request("url0"), "ERR bad katd msg, length too short [4]"},
        {request("u"), "bad katd msg, length too short [1]"},
        {request("URL0x.y"), "ERR Unknown katd msg prefix [URL0x.y]"},
        {number(16 * 1024 * 1024 + 1), "ERR fail to new char [16777218]"},
        {number(0x7FFFFFFF), "fail to new char [-2147483648]"},
    };
    for (const auto& [bytes, message] : cases) {
        SCOPED_TRACE(message);
        messages.clear();
        {
            Connection connection;
            ASSERT_TRUE(connection.client.send(bytes));
            shutdown(connection.client.fd(), SHUT_WR);
            EXPECT_FALSE(connection.client.receive());
        }
        EXPECT_THAT(told(), testing::HasSubstr(message));
    }
}

TEST_F(Requests, RepliesToWhatIsThereGoOutTogetherButNeverWait) {
    home().rules("url asked 7\nurl some 1,2,3\nurl none final\n");
    const std::string asked = request("url1asked");
    std::string many, allOfMany;
    for (int i = 0; i < 160; ++i) {
        many += listed;
        allOfMany += hit;
    }
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {listed + listed + listed, {hit + hit + hit}},
        {listed + asked + listed, {hit, reply({7}) + hit}},
        {listed + request("ctl:urls_stat") + listed, {hit, reply({}, 0) + hit}},
        {listed + listed + number(8) + "url0", {hit + hit}},
        {many, {allOfMany.substr(0, 1781), allOfMany.substr(1781)}},
        {listed + number(0), {hit}},
        {listed + request("url") + listed, {hit}},
        {listed + request("url2x") + listed, {hit}},
        {request("url0some") + request(std::string("url1none\0b", 10)), {reply({1, 2, 3}), reply({})}},
    };
    // Messages of level debug may wait for the log.
    const std::string asks = listed + request("url0some") + listed;
    EXPECT_EQ((std::vector<std::string>{hit, reply({1, 2, 3}), hit}), writesTo(asks));
    KATD_SPACE::ops.logLevel = 1;
    for (const auto& [requests, replies] : cases) {
        SCOPED_TRACE(requests);
        EXPECT_EQ(replies, writesTo(requests));
    }
    // A call that the machine interrupts is not quick.
    int tries = 0;
    while (writesTo(asks) != std::vector<std::string>{hit + reply({1, 2, 3}) + hit} && ++tries < 10000) {
    }
    EXPECT_LT(tries, 10000);
}

// The server's side of a connection: it can hold back replies, for it has read a further query.
struct Holder {
    int serverEnd = -1;
    Client client{socketPair(&serverEnd)};
    KATD_SPACE::ConnectionBuffer stream{serverEnd};

    Holder() {
        std::string query = request("url0ads.example");
        EXPECT_TRUE(client.send(query + query));
        stream.readAhead();
        stream.readn(&query[0], static_cast<unsigned>(query.size()));
    }
    ~Holder() { close(serverEnd); }
    void holdBack() {
        const unsigned char category = 12;
        EXPECT_TRUE(stream.send());  // as after a slow call: makes space
        EXPECT_TRUE(stream.reply({0, 1, 1, {}}, &category));
        EXPECT_FALSE(hasReply());
    }
    bool hasReply() {
        char bytes[13];
        return recv(client.fd(), bytes, sizeof bytes, MSG_DONTWAIT) == sizeof bytes;
    }
};

TEST_F(Requests, RepliesDoNotWaitForASlowOrUnlimitedCallOfTheEngine) {
    KATD_SPACE::ops.logLevel = 1;
    Holder held, other;
    held.holdBack();
    {
        const Watchdog unlimited(0, LateCall::QUERY, "u", &held.stream);
        EXPECT_TRUE(held.hasReply());
    }
    // A client that does not read keeps nobody but its own connection, until it reads.
    held.holdBack();
    std::string before(1 << 20, 'x');
    before.resize(static_cast<std::size_t>(send(held.serverEnd, before.data(), before.size(), MSG_DONTWAIT)));
    other.holdBack();
    {
        const Watchdog slow(1000, LateCall::QUERY, "u", &held.stream);
        const Watchdog next(1000, LateCall::QUERY, "u", &other.stream);
        EXPECT_TRUE(other.client.receive());
        EXPECT_EQ(static_cast<ssize_t>(before.size()),
                  recv(held.client.fd(), &before[0], before.size(), MSG_WAITALL));
        EXPECT_TRUE(held.client.receive());
    }
    EXPECT_FALSE(held.stream.expectsQuickCall());
}

std::atomic<bool> reportBegins{false};

TEST(LateCallReport, BeginsWhenNoReplyIsHeldOverACallAnyMore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // with a thread of its own that watches the calls
    EXPECT_EXIT(
        {
            KATD_SPACE::ops.logLevel = 1;
            KATD_SPACE::ops.output = [](const char*) {  // the log is locked, and the end may wait
                alarm(0);
                reportBegins = true;
                for (;;)
                    pause();
            };
            Holder held;
            const Watchdog late(1, LateCall::QUERY, "u");
            for (bool isLast = false; !isLast;) {
                isLast = reportBegins;
                held.holdBack();
                const Watchdog slow(1000, LateCall::QUERY, "u", &held.stream);
                for (bool hasBegun = isLast; !held.hasReply(); hasBegun = reportBegins)
                    if (hasBegun) _exit(2);
            }
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(Requests, KeepsTheLongMessageBufferUntilItIsTooSmall) {
    Connection connection;
    const unsigned sizes[][2] = {{4095, 0},    {4096, 4097}, {5000, 5001}, {4500, 5001},
                                 {5000, 5001}, {5001, 5002}, {100, 5002}};
    for (const auto& [messageSize, bufferSize] : sizes) {
        SCOPED_TRACE(messageSize);
        const std::string url = "long.example/" + std::string(messageSize - 17, 'x');
        home().rules("url " + url + " 9\n");
        const auto reply = connection.client.ask(url);
        ASSERT_TRUE(reply);
        EXPECT_EQ(std::vector<unsigned>{9}, reply->categories);
        EXPECT_EQ(bufferSize, connection.instance().largeBufferSize);
        EXPECT_LE(bufferSize, malloc_usable_size(connection.instance().largeBuffer));
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

// A file that may not grow takes a part of the replies: which one is cut off, and where, decides the message.
TEST_F(Requests, SaysWhatAPeerDoesNotTake) {
    EXPECT_EQ(-1, UrlServerInstance(-1).handleRequests());
    EXPECT_THAT(told(), testing::HasSubstr("In handleRequests, socket < 0"));
    const std::string path = home() / "requests";
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    for (const unsigned taken : {0, 11, 12, 13, 24, 25}) {
        SCOPED_TRACE(taken);
        writeFile(path, listed + listed);
        const int fd = open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
        const rlimit limit{2 * listed.size() + taken, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(-1, UrlServerInstance(fd).start());
        setrlimit(RLIMIT_FSIZE, &before);
        close(fd);
        EXPECT_EQ(limit.rlim_cur, readFile(path).size());
        const std::string part = taken % 13 == 12 ? "categories" : "result";  // after a header or not
        EXPECT_THAT(told(), testing::EndsWith("fail to send the url query " + part + " to katc, ret[0]\n"));
    }
}

}  // namespace
