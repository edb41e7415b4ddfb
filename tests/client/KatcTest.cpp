#include <sys/stat.h>

#include <map>

#include "client/FakeDaemon.h"
#include "client/KatcProcess.h"

namespace katd_test {
namespace {

using Received = std::vector<FakeDaemon::Received>;

FakeDaemon::Action answerAll(const std::string&) {
    return {reply(1, "\x05"), true};
}

class KatcTest : public testing::Test {
protected:
    std::vector<std::string> with(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"-s", socket});
        return arguments;
    }

    TempDir dir;
    const std::string socket = dir / "socket";
};

TEST_F(KatcTest, PrintsEachAnswerBeforeTheNextQuestion) {
    FakeDaemon daemon(socket, [](const std::string& message) {
        return FakeDaemon::Action{reply(1, std::string(1, message.back())), true};
    });
    KatcProcess katc(with({"-"}));
    for (const char* digit : {"3", "1", "2"}) {
        const std::string url = std::string("a.example/") + digit;
        katc.say(url + "\n");
        EXPECT_EQ(url + "\tknown\t" + std::to_string(*digit), katc.readLine());
    }
    katc.say("no.line.end");
    EXPECT_EQ(0, katc.finish());
    EXPECT_EQ("no.line.end\tknown\t100\n", katc.output);
    EXPECT_EQ("", katc.errors);
    EXPECT_EQ(
        (Received{
            {1, "url0a.example/3"}, {1, "url0a.example/1"}, {1, "url0a.example/2"}, {1, "url0no.line.end"}}),
        daemon.received());
}

TEST_F(KatcTest, PrintsWhatTheReplyHolds) {
    std::string all;
    std::string allAsText;
    for (unsigned i = 0; i < 256; ++i) {
        all += static_cast<char>(i);
        allAsText += (i == 0 ? "" : ",") + std::to_string(i);
    }
    const std::map<std::string, std::pair<std::string, std::string>> replies = {
        {"http://a.example/ b?c=%20", {reply(1, "\x05\x2c\xff"), "\tknown\t5,44,255\n"}},
        {"none", {reply(1, ""), "\tknown\t\n"}},
        {"later", {reply(0, ""), "\tunknown\t\n"}},
        {"[::1]", {reply(1, all), "\tknown\t" + allAsText + "\n"}},
        {"ctl", {reply(0, "\x01"), "\tunknown\t1\n"}},
        {"--", {reply(1, "\x02"), "\tknown\t2\n"}},
        {"-r", {reply(1, "\x03"), "\tknown\t3\n"}},
        {std::string(100000, 'x'), {reply(1, "\x04"), "\tknown\t4\n"}},
    };
    FakeDaemon daemon(socket, [&replies](const std::string& message) {
        return FakeDaemon::Action{replies.at(message.substr(4)).first, true};
    });
    std::vector<std::string> arguments = {"-r", "none", "--"};
    std::string expected = "none\tknown\t\n";
    Received received = {{1, "url1none"}};
    for (const auto& [url, both] : replies) {
        arguments.push_back(url);
        expected += url + both.second;
        received.push_back({1, "url1" + url});
    }
    KatcProcess katc(with(arguments));
    EXPECT_EQ(0, katc.finish()) << katc.errors;
    EXPECT_EQ(expected, katc.output);
    EXPECT_EQ(received, daemon.received());
}

TEST_F(KatcTest, ControlRequestsHaveTheirOperandsInRawBytes) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> requests = {
        {{"log_level", "info"}, "ctl:log_level=" + wire(0)},
        {{"log_level", "error"}, "ctl:log_level=" + wire(1)},
        {{"log_level", "Warning"}, "ctl:log_level=" + wire(2)},
        {{"log_level", "debug"}, "ctl:log_level=" + wire(3)},
        {{"timeout", "2", "500"}, "ctl:timeout=" + wire(2) + wire(500)},
        {{"timeout", "010", "4294967295"}, "ctl:timeout=" + wire(10) + wire(4294967295)},
        {{"save_cache"}, "ctl:save_cache"},
        {{"urls_stat"}, "ctl:urls_stat"},
        {{"reload"}, "ctl:assis_reload"},
    };
    FakeDaemon daemon(socket, [](const std::string&) { return FakeDaemon::Action{reply(0, ""), true}; });
    Received expected;
    for (auto [arguments, message] : requests) {
        arguments.insert(arguments.begin(), "ctl");
        KatcProcess katc(with(arguments));
        EXPECT_EQ(0, katc.finish()) << message << katc.errors;
        EXPECT_EQ("", katc.output + katc.errors);
        expected.push_back({static_cast<unsigned>(expected.size() + 1), message});
    }
    EXPECT_EQ(expected, daemon.received());
}

TEST_F(KatcTest, BadUsageIsToldAndAsksNothing) {
    const std::vector<std::vector<std::string>> bad = {
        {},
        {"-r"},
        {"--"},
        {"-x", "a.example"},
        {"--unknown"},
        {"ctl"},
        {"ctl", "restart"},
        {"ctl", "reload", "now"},
        {"ctl", "reload", "urls_stat"},
        {"-r", "ctl", "reload"},
        {"a.example", "ctl", "reload"},
        {"ctl", "reload", "--", "a.example"},
        {"ctl", "log_level"},
        {"ctl", "log_level", "verbose"},
        {"ctl", "log_level", "3"},
        {"ctl", "timeout", "1"},
        {"ctl", "timeout", "1", "2", "3"},
        {"ctl", "timeout", "1", "4294967296"},
        {"ctl", "timeout", "-1", "1"},
        {"ctl", "timeout", "1", "+1"},
        {"ctl", "timeout", "1", "0x10"},
        {"ctl", "timeout", "1", ""},
    };
    FakeDaemon daemon(socket, answerAll);
    for (const auto& arguments : bad) {
        KatcProcess katc(with(arguments));
        EXPECT_EQ(2, katc.finish()) << testing::PrintToString(arguments) << katc.errors;
        EXPECT_EQ(0U, katc.errors.find("katc: ")) << katc.errors;
        EXPECT_EQ("", katc.output);
    }
    KatcProcess noSocket({"a.example", "-s"});
    EXPECT_EQ(2, noSocket.finish());
    EXPECT_EQ(Received(), daemon.received());
}

TEST_F(KatcTest, HelpAndVersionGoToStandardOutput) {
    for (const char* option : {"--help", "-h", "--version"}) {
        KatcProcess katc({option});
        EXPECT_EQ(0, katc.finish()) << option;
        EXPECT_NE("", katc.output) << option;
        EXPECT_EQ("", katc.errors) << option;
    }
}

TEST_F(KatcTest, WithoutADaemonTheStatusIsThree) {
    const std::string dead = dir / "dead";
    close(KATD_SPACE::Utils::createLocalTcpService(dead.c_str(), 1));
    for (const std::string& path : {dir / "missing", dead, dir / std::string(120, 'x')}) {
        for (const std::vector<std::string>& request : {std::vector<std::string>{"a.example", "b.example"},
                                                        std::vector<std::string>{"ctl", "reload"}}) {
            std::vector<std::string> arguments = {"--socket", path};
            arguments.insert(arguments.end(), request.begin(), request.end());
            KatcProcess katc(arguments);
            EXPECT_EQ(3, katc.finish()) << path;
            EXPECT_NE(std::string::npos, katc.errors.find(path)) << katc.errors;
            EXPECT_EQ(std::string::npos, katc.errors.find("b.example"))
                << "goes on without a daemon: " << katc.errors;
        }
    }
}

TEST_F(KatcTest, GoesOnOverANewConnectionWhenTheDaemonCloses) {
    FakeDaemon daemon(socket, [](const std::string& message) {
        if (message == "url0refused") return FakeDaemon::Action{"", false};
        return FakeDaemon::Action{reply(1, "\x07"), message != "url0last"};
    });
    KatcProcess katc(with({"-"}));
    katc.say("first\n");
    EXPECT_EQ("first\tknown\t7", katc.readLine());
    katc.say("refused\nlast\n");
    EXPECT_EQ("last\tknown\t7", katc.readLine());
    while (daemon.closed() != 2)
        std::this_thread::yield();
    katc.say("next\n");
    EXPECT_EQ(1, katc.finish());
    EXPECT_EQ("next\tknown\t7\n", katc.output);
    EXPECT_NE(std::string::npos, katc.errors.find("[refused]")) << katc.errors;
    EXPECT_EQ((Received{{1, "url0first"}, {1, "url0refused"}, {2, "url0last"}, {3, "url0next"}}),
              daemon.received());
}

TEST_F(KatcTest, RefusesWhatTheDaemonWouldMisunderstand) {
    FakeDaemon daemon(socket, answerAll);
    KatcProcess katc(with({"-"}));
    katc.say("\na.example\nb" + std::string(1, '\0') + "c\n \n\nd.example\n");
    EXPECT_EQ(1, katc.finish());
    EXPECT_EQ("a.example\tknown\t5\n \tknown\t5\nd.example\tknown\t5\n", katc.output);
    KatcProcess empty(with({"", "e.example"}));
    EXPECT_EQ(1, empty.finish());
    EXPECT_EQ("e.example\tknown\t5\n", empty.output);
    EXPECT_EQ((Received{{1, "url0a.example"}, {1, "url0 "}, {1, "url0d.example"}, {2, "url0e.example"}}),
              daemon.received());
}

TEST_F(KatcTest, ReplyThatIsNoneIsNoAnswer) {
    const std::string header = reply(1, std::string(256, 'x')).substr(0, 12);
    const std::vector<std::string> replies = {
        reply(1, "").substr(0, 11),       header + std::string(255, 'x'),
        reply(1, std::string(257, 'x')),  reply(2, ""),
        wire(1) + reply(1, "").substr(4),
    };
    for (const std::string& bytes : replies) {
        FakeDaemon daemon(socket, [&bytes](const std::string&) { return FakeDaemon::Action{bytes, false}; });
        KatcProcess katc(with({"a.example"}));
        EXPECT_EQ(1, katc.finish()) << testing::PrintToString(bytes);
        EXPECT_EQ("", katc.output);
        EXPECT_NE(std::string::npos, katc.errors.find("[a.example]")) << katc.errors;
        KatcProcess control(with({"ctl", "reload"}));
        EXPECT_EQ(1, control.finish());
    }
}

TEST_F(KatcTest, OutputOrInputThatFailsIsNoSuccess) {
    FakeDaemon daemon(socket, answerAll);
    KatcProcess full(with({"a.example", "b.example"}), "", "/dev/full");
    EXPECT_EQ(1, full.finish());
    EXPECT_NE(std::string::npos, full.errors.find("No space left")) << full.errors;
    EXPECT_EQ((Received{{1, "url0a.example"}}), daemon.received());
    KatcProcess unreadable(with({"-"}), "", "", dir.path());
    EXPECT_EQ(1, unreadable.finish());
    EXPECT_NE(std::string::npos, unreadable.errors.find("standard input")) << unreadable.errors;
}

TEST_F(KatcTest, SettingsNameTheSocket) {
    ASSERT_EQ(0, mkdir((dir / "conf").c_str(), 0700));
    writeFile(dir / "conf/katd.ini", "[katd]\ndata_conn_string = socket ; here\n");
    ASSERT_EQ(0, chmod((dir / "conf/katd.ini").c_str(), 0400));
    FakeDaemon daemon(socket, answerAll);
    for (const std::string& home : {dir.path(), dir.path() + "/"}) {
        KatcProcess katc({"a.example"}, home);
        EXPECT_EQ(0, katc.finish()) << katc.errors;
    }
    KatcProcess preferred({"-s", dir / "other", "a.example"}, dir.path());
    EXPECT_EQ(3, preferred.finish());

    KatcProcess unset({"a.example"});
    EXPECT_EQ(2, unset.finish());
    KatcProcess noSettings({"a.example"}, dir / "conf");
    EXPECT_EQ(2, noSettings.finish());
    ASSERT_EQ(0, chmod((dir / "conf/katd.ini").c_str(), 0600));
    writeFile(dir / "conf/katd.ini", "[katd]\ndata_conn_string =\n");
    KatcProcess noName({"a.example"}, dir.path());
    EXPECT_EQ(2, noName.finish());
    for (KatcProcess* katc : {&unset, &noSettings, &noName})
        EXPECT_NE(katc->errors.npos, katc->errors.find("-s."));
}

}  // namespace
}  // namespace katd_test
