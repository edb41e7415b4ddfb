// libkatclient in front of a daemon that answers as the test wants.
#include <gmock/gmock.h>
#include <katclient.h>
#include <poll.h>

#include <atomic>
#include <future>

#include "support/FakeDaemon.h"
#include "support/Ticks.h"

namespace katd_test {
namespace {

using KATD_SPACE::Utils;
using testing::HasSubstr;

struct Closer {
    void operator()(katclient* client) const { katclient_close(client); }
};
using Handle = std::unique_ptr<katclient, Closer>;

class KatclientTest : public testing::Test {
protected:
    static Handle openClient(const std::string& path, unsigned connectMs = 0, unsigned answerMs = 60000) {
        katclient* client = nullptr;
        EXPECT_EQ(KATCLIENT_OK, katclient_open(path.c_str(), &client));
        if (client != nullptr) katclient_set_limits(client, connectMs, answerMs);
        return Handle(client);
    }
    // Asks for all; each answer as its status or, when there is one, whether it is known and its categories.
    static Texts askMany(katclient* client, const Texts& urls, int expected) {
        std::vector<const char*> pointers;
        std::vector<std::size_t> lengths;
        for (const std::string& url : urls) {
            pointers.push_back(url.data());
            lengths.push_back(url.size());
        }
        std::vector<katclient_answer> answers(urls.size());
        EXPECT_EQ(expected,
                  katclient_ask_many(client, pointers.data(), lengths.data(), urls.size(), 0, answers.data()))
            << katclient_message(client);
        Texts result;
        for (const katclient_answer& answer : answers) {
            std::string text = answer.status == KATCLIENT_OK ? (answer.known != 0 ? "known" : "unknown")
                                                             : "status " + std::to_string(answer.status);
            for (unsigned i = 0; i < answer.count; ++i)
                text += " " + std::to_string(answer.categories[i]);
            result.push_back(text);
        }
        return result;
    }
    static std::string run(const std::string& line, int* status) {
        FILE* const pipe = popen(line.c_str(), "r");
        std::string text;
        for (int c = 0; (c = fgetc(pipe)) != EOF;)
            text += static_cast<char>(c);
        *status = WEXITSTATUS(pclose(pipe));
        return text;
    }

    TempDir dir;
    const std::string socket = dir / "socket";
};

// The category of a URL is its last byte.
std::string lastByte(const std::string& message) {
    return reply(1, message.substr(message.size() - 1));
}

TEST_F(KatclientTest, QuestionsOfOneCallGoOutTogether) {
    const int listener = Utils::createLocalTcpService(socket.c_str(), 1);
    std::string expected, replies;
    Texts urls;
    for (char c = 'a'; c < 'a' + 16; ++c) {
        urls.push_back(std::string("site.example/") + c);
        expected += request("url0" + urls.back());
        replies += lastByte(urls.back());
    }
    // One read finds all the requests; nothing was answered until then.
    std::future<std::string> received = std::async(std::launch::async, [&] {
        const int fd = accept(listener, nullptr, nullptr);
        std::string bytes(100000, '\0');
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(read(fd, &bytes[0], bytes.size()), 0)));
        EXPECT_EQ(replies.size(), Utils::writen(fd, replies.data(), static_cast<unsigned>(replies.size())));
        close(fd);
        return bytes;
    });
    const Handle client = openClient(socket);
    const Texts answers = askMany(client.get(), urls, KATCLIENT_OK);
    EXPECT_EQ(expected, received.get());
    EXPECT_EQ("known 97", answers.front());
    EXPECT_EQ("known 112", answers.back());
    close(listener);
}

// The daemon reads nothing while its replies are not taken, and the requests do not fit into the socket.
TEST_F(KatclientTest, NeitherSideWaitsForTheOther) {
    FakeDaemon daemon(socket, [](const std::string& message) {
        return reply(1, std::string(255, '\x01') + static_cast<char>(message.size() % 251));
    });
    Texts urls(4000, std::string(900, 'x'));
    for (std::size_t i = 0; i < urls.size(); ++i)
        urls[i].resize(900 + i % 128, 'x');
    // One that is gathered, two whose bodies are sent from where they are, and the longest that may be.
    for (const std::size_t size : {4088U, 4089U, 3000000U, 16U * 1024 * 1024 - 4})
        urls.insert(urls.begin() + 1000, std::string(size, 'y'));
    for (const unsigned answerMs : {60000U, 0U}) {
        const Handle client = openClient(socket, 0, answerMs);
        const Texts answers = askMany(client.get(), urls, KATCLIENT_OK);
        for (std::size_t i = 0; i < urls.size(); ++i) {
            const std::string last = " " + std::to_string((urls[i].size() + 4) % 251);
            ASSERT_THAT(answers[i], testing::EndsWith(last)) << i;
        }
    }
    EXPECT_EQ(2 * urls.size(), daemon.received().size()) << "asked more than once";
}

TEST_F(KatclientTest, OneFailureDoesNotTouchTheOthers) {
    std::promise<void> release;
    const std::shared_future<void> released(release.get_future());
    FakeDaemon daemon(socket, [&](const std::string& message) -> std::string {
        const std::string url = message.substr(4);
        if (url == "hangs!") released.wait();
        if (url == "refused!" || url == "hangs!") return "";
        if (url == "garbage!") return number(1) + std::string(8, '\0');
        if (url == "toomany!") return reply(1, std::string(257, 'x'));
        if (url == "pair") return reply(0, "") + reply(1, "z");
        return lastByte(message);
    });
    const Handle client = openClient(socket);
    const std::string zero("a\0b", 3);
    EXPECT_EQ((Texts{"known 97", "status 5", "status 2", "known 98", "status 5", "status 4", "status 4",
                     "known 99"}),
              askMany(client.get(), {"a", "", "refused!", "b", zero, "garbage!", "toomany!", "c"},
                      KATCLIENT_BAD_ARGUMENT));
    EXPECT_THAT(katclient_message(client.get()), HasSubstr("zero byte"));
    // What the daemon closed was asked once more, alone; what came behind it was asked over the next
    // connection.
    Texts received = daemon.received();
    EXPECT_EQ("1 url0a", received.at(0));
    EXPECT_EQ("1 url0refused!", received.at(1));
    EXPECT_EQ("2 url0refused!", received.at(2));
    EXPECT_EQ("3 url0b", received.at(3));
    EXPECT_EQ(1, std::count(received.begin(), received.end(), "3 url0garbage!"));

    // A reply too many is nobody's.
    EXPECT_EQ((Texts{"unknown"}), askMany(client.get(), {"pair"}, KATCLIENT_OK));
    EXPECT_EQ((Texts{"known 100"}), askMany(client.get(), {"d"}, KATCLIENT_OK));

    EXPECT_EQ((Texts{"known 101", "status 2"}), askMany(client.get(), {"e", "refused!"}, KATCLIENT_CLOSED));
    EXPECT_THAT(katclient_message(client.get()), HasSubstr("log"));
    EXPECT_EQ(Texts{"status 4"}, askMany(client.get(), {"garbage!"}, KATCLIENT_BAD_REPLY));
    EXPECT_THAT(katclient_message(client.get()), HasSubstr(socket));

    katclient_set_limits(client.get(), 0, 200);
    EXPECT_EQ((Texts{"status 3"}), askMany(client.get(), {"hangs!"}, KATCLIENT_TIMED_OUT));
    EXPECT_THAT(katclient_message(client.get()), HasSubstr("0.200 seconds"));
    release.set_value();
    katclient_set_limits(client.get(), 0, 60000);
    EXPECT_EQ((Texts{"known 102"}), askMany(client.get(), {"f"}, KATCLIENT_OK));
    received = daemon.received();
    EXPECT_EQ(1, std::count_if(received.begin(), received.end(),
                               [](const std::string& line) { return line.find("hangs!") != line.npos; }))
        << "too late, but asked again";
}

TEST_F(KatclientTest, ARestartOfTheDaemonLosesNothing) {
    const Handle client = openClient(socket, 30000);
    std::signal(SIGPIPE, SIG_DFL);
    auto daemon = std::make_unique<FakeDaemon>(socket, lastByte);
    std::signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ((Texts{"known 97"}), askMany(client.get(), {"a"}, KATCLIENT_OK));
    // While nothing is under way.
    daemon.reset();
    daemon = std::make_unique<FakeDaemon>(socket, lastByte);
    std::signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ((Texts{"known 98"}), askMany(client.get(), {"b"}, KATCLIENT_OK));
    EXPECT_EQ(Texts{"1 url0b"}, daemon->received());
    // With questions under way, and for a while without a socket.
    daemon.reset();
    std::promise<void> reached;
    daemon = std::make_unique<FakeDaemon>(socket, [&](const std::string& message) {
        if (message == "url0mid") reached.set_value();
        return message == "url0mid" ? "" : lastByte(message);
    });
    std::thread restart([&] {
        reached.get_future().wait();
        daemon.reset();
        std::filesystem::remove(socket);
        usleep(50000);
        daemon = std::make_unique<FakeDaemon>(socket, lastByte);
    });
    Texts urls(1000, "x");
    urls[500] = "mid";
    Texts expected(1000, "known 120");
    expected[500] = "known 100";
    EXPECT_EQ(expected, askMany(client.get(), urls, KATCLIENT_OK));
    restart.join();
}

TEST_F(KatclientTest, WithoutADaemonTheRestIsNotWaitedFor) {
    const Handle client = openClient(socket, 0);
    EXPECT_STREQ("", katclient_message(client.get()));
    EXPECT_EQ(KATCLIENT_NO_DAEMON, katclient_connect(client.get()));
    EXPECT_EQ((Texts{"status 5", "status 1", "status 1"}),
              askMany(client.get(), {"", "a", "b"}, KATCLIENT_BAD_ARGUMENT));
    EXPECT_EQ((Texts{"status 1", "status 5", "status 1"}),
              askMany(client.get(), {"a", "", "b"}, KATCLIENT_BAD_ARGUMENT));
    EXPECT_EQ((Texts{"status 1", "status 1"}), askMany(client.get(), {"a", "b"}, KATCLIENT_NO_DAEMON));
    EXPECT_THAT(katclient_message(client.get()), HasSubstr(socket + " (No such file or directory)"));
    EXPECT_EQ(KATCLIENT_NO_DAEMON, katclient_reload(client.get()));

    katclient* none = client.get();
    for (const std::string& path : {std::string(), std::string(108, 'x')}) {
        EXPECT_EQ(KATCLIENT_BAD_ARGUMENT, katclient_open(path.c_str(), &none));
        EXPECT_EQ(nullptr, none);
    }
    katclient_close(nullptr);
    EXPECT_NE(nullptr, openClient(std::string(107, 'x')));
    EXPECT_STREQ("", katclient_status_text(KATCLIENT_OK));

    // A daemon that listens and never accepts is no place to stay.
    const int listener = Utils::createLocalTcpService(socket.c_str(), 0);
    std::vector<Handle> waiting;
    int status = KATCLIENT_OK;
    while (status == KATCLIENT_OK && waiting.size() < 100) {
        waiting.push_back(openClient(socket, 20, 50));
        status = katclient_connect(waiting.back().get());
    }
    EXPECT_EQ(KATCLIENT_NO_DAEMON, status);
    close(listener);
}

TEST_F(KatclientTest, ControlRequestsAndSignals) {
    FakeDaemon daemon(socket, [](const std::string&) {
        usleep(3000);
        return reply(0, "");
    });
    const Handle client = openClient(socket);
    const Ticks ticks;
    EXPECT_EQ(KATCLIENT_OK, katclient_log_level(client.get(), KATCLIENT_LEVEL_DEBUG));
    EXPECT_EQ(KATCLIENT_OK, katclient_retry_times(client.get(), 7, 4294967295U));
    EXPECT_EQ(KATCLIENT_OK, katclient_save_cache(client.get()));
    EXPECT_EQ(KATCLIENT_OK, katclient_urls_stat(client.get()));
    EXPECT_EQ(KATCLIENT_OK, katclient_reload(client.get()));
    EXPECT_EQ((Texts{"1 ctl:log_level=" + number(3), "1 ctl:timeout=" + number(7) + number(4294967295U),
                     "1 ctl:save_cache", "1 ctl:urls_stat", "1 ctl:assis_reload"}),
              daemon.received());
    katclient_set_limits(client.get(), 0, 0);
    EXPECT_EQ((Texts(20, "unknown")), askMany(client.get(), Texts(20, "a"), KATCLIENT_OK));
    EXPECT_GT(Ticks::count, 0);
}

TEST_F(KatclientTest, CProgramsLinkBothLibraries) {
    for (const std::string program : {ASK_SHARED, ASK_STATIC}) {
        FakeDaemon daemon(socket, lastByte);
        int status = -1;
        EXPECT_EQ("version " KATCLIENT_VERSION
                  " status 5 message ["
                  "a URL is a text of 1 byte to 16 MiB without a zero byte: ask for such a one]\n"
                  "a.example status 0 known 1 count 1 first 101\n status 5 known 0 count 0 first -1\n",
                  run(program + " " + socket + " a.example ''", &status));
        EXPECT_EQ(KATCLIENT_BAD_ARGUMENT, status);
        EXPECT_EQ(Texts{"1 url1a.example"}, daemon.received());
    }
}

}  // namespace
}  // namespace katd_test
