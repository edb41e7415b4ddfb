// libkatclient with a daemon that answers as the test wants.
#include <katclient.h>
#include <poll.h>

#include <future>
#include <numeric>

#include "support/FakeDaemon.h"
#include "support/Ticks.h"

using namespace katd_test;

namespace {

using KATD_SPACE::Utils;
using testing::HasSubstr;
using Handle = std::unique_ptr<katclient, decltype(&katclient_close)>;

// The category of a URL is its last byte.
std::string lastByte(const std::string& message) {
    return reply(1, message.substr(message.size() - 1));
}

class KatclientTest : public testing::Test {
protected:
    Handle open(unsigned connectMs = 0, unsigned answerMs = 60000) const {
        katclient* client = nullptr;
        EXPECT_EQ(KATCLIENT_OK, katclient_open(socket.c_str(), &client));
        katclient_set_limits(client, connectMs, answerMs);
        return Handle(client, katclient_close);
    }
    // The status of the call, then each answer: s and its status, or k (known) or u and its last category.
    static std::string ask(const Handle& client, const Texts& urls) {
        std::vector<const char*> data;
        std::vector<std::size_t> sizes;
        for (const std::string& url : urls) {
            data.push_back(url.data());
            sizes.push_back(url.size());
        }
        std::vector<katclient_answer> all(urls.size());
        const int first =
            katclient_ask_many(client.get(), data.data(), sizes.data(), all.size(), 0, all.data());
        std::string result = std::to_string(first);
        for (const katclient_answer& one : all) {
            result += one.status != 0 ? " s" + std::to_string(one.status) : one.known != 0 ? " k" : " u";
            if (one.count != 0) result += std::to_string(one.categories[one.count - 1]);
        }
        return result;
    }
    void expectMessage(const Handle& client, const std::string& part) {
        EXPECT_THAT(katclient_message(client.get()), HasSubstr(part));
    }

    TempDir dir;
    const std::string socket = dir / "socket";
};

TEST_F(KatclientTest, RequestsGoOutTogetherAlsoAfterARefusal) {
    const int listener = Utils::createLocalTcpService(socket.c_str(), 2);
    auto received = std::async(std::launch::async, [listener] {
        Texts reads;
        int fd = -1;
        // "-": on a new connection; "-!": one that ends before the request is read.
        for (const std::string replies : {"-", "-!", "-a", "bc"}) {
            if (replies[0] == '-') {
                close(fd);
                fd = accept(listener, nullptr, nullptr);
            }
            pollfd events{fd, POLLIN, 0};
            poll(&events, 1, 10000);
            if (replies == "-!") continue;
            std::string bytes(1000, '\0');
            bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(read(fd, &bytes[0], bytes.size()), 0)));
            reads.push_back(bytes);
            if (replies == "-") shutdown(fd, SHUT_RDWR);
            for (const char c : replies.substr(replies[0] == '-'))
                Utils::writen(fd, lastByte({c}).data(), 13);
        }
        close(fd);
        return reads;
    });
    EXPECT_EQ("0 k97 k98 k99", ask(open(0, 3000), {"a", "b", "c"}));
    const std::string first = request("url0a"), others = request("url0b") + request("url0c");
    EXPECT_EQ((Texts{first + others, first, others}), received.get());
    close(listener);
}

// The daemon reads nothing while its replies are not read, the requests do not fit into the socket, and
// signals come.
TEST_F(KatclientTest, NeitherSideWaitsForTheOther) {
    const auto sum = [](const std::string& text) {
        return std::accumulate(text.begin(), text.end(), 0) & 127;
    };
    FakeDaemon daemon(socket, [&](const std::string& message) {
        return reply(1, std::string(255, '\1') + static_cast<char>(sum(message.substr(4))));
    });
    Texts urls;
    std::string expected = "0";
    for (unsigned i = 0, random = 1; i < 4000; ++i) {
        // One that is copied, two that are sent from the caller's memory, and the longest that is allowed.
        const std::map<unsigned, unsigned> sizes = {
            {999, 4088}, {1000, 4089}, {1001, 3000000}, {1002, (16 << 20) - 4}};
        std::string url(sizes.count(i) != 0 ? sizes.at(i) : 900 + i % 128, 'x');
        for (std::size_t at = 0; at < url.size(); at += 97)
            url[at] = static_cast<char>('a' + (random = random * 1103515245 + 12345) / 65536 % 23);
        expected += " k" + std::to_string(sum(url));
        urls.push_back(std::move(url));
    }
    const Ticks ticks;
    for (const unsigned answerMs : {60000U, 0U})
        EXPECT_TRUE(expected == ask(open(0, answerMs), urls));
    EXPECT_EQ(2 * urls.size(), daemon.received().size()) << "asked more than once";
    EXPECT_GT(Ticks::count, 0);
}

TEST_F(KatclientTest, OneFailureDoesNotTouchTheOthers) {
    FakeDaemon daemon(socket, [&](const std::string& message) -> std::string {
        if (message == "url0refused!") return "";
        if (message == "url0pair") return reply(0, "") + reply(1, "z").substr(0, 5);
        return message == "url0garbage!" ? number(1) + std::string(8, '\0') : lastByte(message);
    });
    const Handle client = open();
    const std::string zero("a\0b", 3), tooLong(16 * 1024 * 1024 - 3, 'x');
    EXPECT_EQ("5 k97 s5 s2 k98 s5 s5 s4 k99",
              ask(client, {"a", "", "refused!", "b", zero, tooLong, "garbage!", "c"}));
    expectMessage(client, "zero byte");
    // What was refused is asked once more, alone; the others then follow on the next connection.
    const std::string received = testing::PrintToString(daemon.received());
    EXPECT_EQ(0U, received.find("{ \"1 url0a\", \"1 url0refused!\", \"2 url0refused!\", \"3 url0b\""))
        << received;
    EXPECT_EQ(received.find("garbage"), received.rfind("garbage"));
    // Bytes after the last reply end the connection: their rest would be taken for the next reply.
    EXPECT_EQ("0 u", ask(client, {"pair"}));
    const char before = daemon.received().back()[0];
    EXPECT_EQ("0 k100", ask(client, {"d"}));
    EXPECT_NE(before, daemon.received().back()[0]);
    EXPECT_EQ("2 k101 s2", ask(client, {"e", "refused!"}));
    expectMessage(client, "its log");
}

TEST_F(KatclientTest, BytesThatAreNoReply) {
    const std::string longest = reply(1, std::string(256, 'x'));
    // clang-format off
    const std::pair<std::string, const char*> rows[] = {
        {longest, "0 k120"}, {longest.substr(0, 11), "2 s2"}, {longest.substr(0, 267), "2 s2"},
        {reply(1, longest), "4 s4"}, {reply(2, ""), "4 s4"}, {number(1) + longest.substr(4), "4 s4"},
    };
    // clang-format on
    for (const auto& [bytes, expected] : rows) {
        FakeDaemon daemon(socket, [&](const std::string&) { return bytes; });
        EXPECT_EQ(expected, ask(open(), {"a!"})) << testing::PrintToString(bytes);
    }
}

TEST_F(KatclientTest, TheTimeLimitIsForEachAnswer) {
    std::promise<void> release;
    FakeDaemon daemon(socket, [&, released = release.get_future().share()](const std::string& message) {
        usleep(message == "url0slow" ? 200000 : 0);
        if (message == "url0hangs") released.wait_for(std::chrono::seconds(20));
        return lastByte(message);
    });
    const Handle client = open(0, 1000);
    EXPECT_EQ("0 k119 k119 k119 k119 k119 k119", ask(client, Texts(6, "slow")));
    EXPECT_EQ("3 k97 s3", ask(client, {"a", "hangs"}));
    expectMessage(client, "1.000 seconds");
    katclient_set_limits(client.get(), 0, 50);
    EXPECT_EQ(KATCLIENT_TIMED_OUT, katclient_urls_stat(client.get()));
    expectMessage(client, "0.050 seconds: the request may still be carried out");
    release.set_value();
    katclient_set_limits(client.get(), 0, 60000);
    EXPECT_EQ("0 k98", ask(client, {"b"})) << "got the late answer";
}

TEST_F(KatclientTest, ARestartOfTheDaemonLosesNothing) {
    const Handle client = open(30000);
    auto daemon = std::make_unique<FakeDaemon>(socket, lastByte);
    EXPECT_EQ("0 k97", ask(client, {"a"}));
    // While nothing is in flight: the lost connection raises no SIGPIPE.
    std::promise<void> reached;
    daemon.reset();
    daemon = std::make_unique<FakeDaemon>(socket, [&, isSilent = false](const std::string& message) mutable {
        if (message == "url0mid") reached.set_value();
        isSilent = isSilent || message == "url0mid";
        return isSilent ? "" : lastByte(message);
    });
    std::signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ("0 k98", ask(client, {"b"}));
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(Texts{"1 url0b"}, daemon->received());
    // With requests in flight, and without a socket for a while.
    std::thread restart([&] {
        reached.get_future().wait();
        daemon.reset();
        std::filesystem::remove(socket);
        usleep(50000);
        daemon = std::make_unique<FakeDaemon>(socket, lastByte);
    });
    Texts urls(1000, "x");
    urls[500] = "mid";
    std::string expected = "0";
    for (const std::string& url : urls)
        expected += url == "mid" ? " k100" : " k120";
    EXPECT_EQ(expected, ask(client, urls));
    restart.join();
}

TEST_F(KatclientTest, WithoutADaemonTheRestIsNotWaitedFor) {
    const Handle client = open();
    EXPECT_STREQ("", katclient_message(client.get()));
    EXPECT_EQ("5 s5 s1 s1", ask(client, {"", "a", "b"}));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(KATCLIENT_NO_DAEMON, katclient_connect(client.get())) << i;
    expectMessage(client, socket + " (No such file or directory)");
    EXPECT_EQ("1 s1 s1", ask(client, {"a", "b"}));
    // One that listens, but never accepts.
    const int listener = Utils::createLocalTcpService(socket.c_str(), 0);
    std::vector<Handle> waiting;
    int status = KATCLIENT_OK;
    while (status == KATCLIENT_OK && waiting.size() < 100) {
        waiting.push_back(open(20, 50));
        status = katclient_connect(waiting.back().get());
    }
    EXPECT_EQ(KATCLIENT_NO_DAEMON, status);
    close(listener);
}

TEST_F(KatclientTest, CProgramsLinkBothLibraries) {
    FakeDaemon daemon(socket, lastByte);
    for (const std::string program : {ASK_SHARED_BINARY, ASK_STATIC_BINARY}) {
        EXPECT_EQ(
            0, std::system((program + " " + socket + " a.example ''>" + dir / "out; test $? = 5").c_str()));
        EXPECT_EQ("version " KATCLIENT_VERSION
                  " status 5 message [a URL must have 1 byte to 16 MiB and no zero byte]\n"
                  "a.example status 0 known 1 count 1 first 101\n status 5 known 0 count 0 first -1\n",
                  readFile(dir / "out"));
    }
    EXPECT_EQ((Texts{"1 url1a.example", "2 url1a.example"}), daemon.received());
}

}  // namespace
