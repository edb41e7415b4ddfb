// The real katc, in front of a daemon that answers as the test wants.
#include <gmock/gmock.h>

#include <future>
#include <map>
#include <optional>

#include "support/Daemon.h"
#include "support/FakeDaemon.h"
#include "support/Home.h"

namespace katd_test {
namespace {

using KATD_SPACE::Utils;
using testing::HasSubstr;

std::string answerAll(const std::string&) {
    return reply(1, "\x05");
}

class KatcTest : public testing::Test {
protected:
    // Runs a shell line in the folder; the exit status.
    int run(const std::string& line) {
        const std::string script = "cd " + dir.path() +
                                   "; unset KATD_DIR; PATH=$(dirname " KATC_BINARY "):$PATH; { " + line +
                                   "\n} </dev/null >out 2>err";
        const int status = std::system(script.c_str());
        output = readFile(dir / "out");
        errors = readFile(dir / "err");
        return WEXITSTATUS(status);
    }

    TempDir dir;
    const std::string socket = dir / "socket";
    std::string output, errors;
};

TEST_F(KatcTest, PrintsEachAnswerAsItComes) {
    FakeDaemon daemon(socket, answerAll);
    // Each line is written when the answer of the one before has been printed.
    EXPECT_EQ(0, run("for n in 1 2 3; do printf $n.example; [ $n = 3 ] || echo\n"
                     "i=0; while [ $n != 3 ] && ! grep -q $n.example out && [ $i != 3000 ]; do\n"
                     "sleep 0.01; i=$((i + 1)); done; [ $i != 3000 ] || echo late; done | katc -s socket -"))
        << errors;
    EXPECT_EQ("1.example\tknown\t5\n2.example\tknown\t5\n3.example\tknown\t5\n", output);
    EXPECT_EQ((Texts{"1 url01.example", "1 url02.example", "1 url03.example"}), daemon.received());
}

TEST_F(KatcTest, AsksManyLinesInOrder) {
    FakeDaemon daemon(
        socket, [](const std::string& message) { return reply(1, message.substr(message.size() - 1)); });
    std::string lines, expected;
    for (int i = 0; i < 20000; ++i) {
        const std::string url = std::string(static_cast<std::size_t>(i % 300), 'x') + std::to_string(i);
        lines += url + "\n";
        expected += url + "\tknown\t" + std::to_string(url.back()) + "\n";
    }
    writeFile(dir / "lines", lines);
    EXPECT_EQ(0, run("katc -s socket --timeout 60 - <lines")) << errors;
    EXPECT_TRUE(expected == output);
    EXPECT_EQ(20000U, daemon.received().size());
}

TEST_F(KatcTest, PrintsWhatTheReplyHolds) {
    const std::string longUrl(100000, 'x');
    std::string sevens;
    while (sevens.size() < 510)
        sevens += "7,";
    const std::map<std::string, std::pair<std::string, std::string>> replies = {
        {"http://a.example/ b?c=%20", {reply(1, "\x05\x2c\xff"), "known\t5,44,255\n"}},
        {"none", {reply(1, ""), "known\t\n"}},
        {"ctl", {reply(0, ""), "unknown\t\n"}},
        {"-r", {reply(0, "\x03"), "unknown\t3\n"}},
        {longUrl, {reply(1, std::string(256, '\x07')), "known\t" + sevens + "7\n"}}};
    FakeDaemon daemon(socket,
                      [&](const std::string& message) { return replies.at(message.substr(4)).first; });
    std::string line = "katc -s socket -r none --", expected = "none\tknown\t\n";
    Texts received = {"1 url1none"};
    for (const auto& [url, both] : replies) {
        line += " '" + url + "'";
        expected += url + "\t" + both.second;
        received.push_back("1 url1" + url);
    }
    EXPECT_EQ(0, run(line)) << errors;
    EXPECT_EQ(expected, output);
    EXPECT_EQ(received, daemon.received());
}

TEST_F(KatcTest, ControlRequestsHaveTheirOperandsInRawBytes) {
    const std::pair<std::string, std::string> requests[] = {
        {"log_level info", "log_level=" + number(0)},
        {"log_level error", "log_level=" + number(1)},
        {"log_level Warning", "log_level=" + number(2)},
        {"log_level debug", "log_level=" + number(3)},
        {"timeout 010 4294967295", "timeout=" + number(10) + number(4294967295)},
        {"save_cache", "save_cache"},
        {"urls_stat", "urls_stat"},
        {"reload", "assis_reload"}};
    FakeDaemon daemon(socket, [](const std::string&) { return reply(0, ""); });
    Texts expected;
    for (const auto& [arguments, message] : requests) {
        EXPECT_EQ(0, run("katc -s socket ctl " + arguments));
        EXPECT_EQ("", output + errors);
        expected.push_back(std::to_string(expected.size() + 1) + " ctl:" + message);
    }
    EXPECT_EQ(expected, daemon.received());
}

TEST_F(KatcTest, BadUsageIsToldAndAsksNothing) {
    FakeDaemon daemon(socket, answerAll);
    std::istringstream bad(
        "-r|--|-x a|--unknown|ctl|ctl restart|ctl reload now|ctl reload urls_stat|-r ctl reload|a ctl reload|"
        "ctl reload -- a|ctl log_level|ctl log_level verbose|ctl log_level 3|ctl timeout 1|ctl timeout 1 2 3|"
        "ctl timeout 1 4294967296|ctl timeout -1 1|ctl timeout 1 +1|ctl timeout 1 0x10|ctl timeout 1 ''|"
        "--json ctl reload|ctl reload --categories good|--timeout -1 a|--timeout 1e3 a|--wait inf a|--wait "
        "4000001 a|"
        "--wait '' a|--categories missing a|--categories . a|--categories bad a|-r helper|");
    writeFile(dir / "good", "news = 12\n");
    writeFile(dir / "bad", "news = 12\nsport: 13\n");
    for (std::string arguments; std::getline(bad, arguments, '|');) {
        EXPECT_EQ(2, run("katc -s socket " + arguments)) << arguments;
        EXPECT_EQ(0U, errors.find("katc: ")) << errors;
        EXPECT_EQ("", output);
    }
    EXPECT_EQ(2, run("katc -s socket"));
    EXPECT_EQ(2, run("katc a -s"));
    EXPECT_EQ(Texts(), daemon.received());
    for (const std::string option : {"--help", "-h", "--version"}) {
        EXPECT_EQ(0, run("katc " + option));
        EXPECT_THAT(output, HasSubstr("katc"));
        EXPECT_EQ("", errors);
    }
}

TEST_F(KatcTest, WithoutADaemonTheStatusIsThree) {
    close(Utils::createLocalTcpService((dir / "dead").c_str(), 1));
    for (const std::string& path : Texts{"missing", "dead"}) {
        for (const std::string request : {"a b", "ctl reload"}) {
            EXPECT_EQ(3, run("katc --socket " + path + " " + request));
            EXPECT_THAT(errors, HasSubstr(path));
            EXPECT_EQ(std::string::npos, errors.find("[b]")) << "goes on without a daemon: " << errors;
        }
    }
    EXPECT_EQ(2, run("katc -s " + std::string(108, 'x') + " a"));
    EXPECT_THAT(errors, HasSubstr("-s."));
}

TEST_F(KatcTest, GoesOnOverANewConnectionWhenTheDaemonCloses) {
    FakeDaemon daemon(
        socket, [](const std::string& message) { return message == "url0refused!" ? "" : reply(1, "\x07"); });
    EXPECT_EQ(1, run("{ printf 'first\\nrefused!\\nlast!\\n'\n"
                     "while [ ! -e socket.closed3 ]; do sleep 0.01; done\necho next; } | katc -s socket -"));
    EXPECT_EQ("first\tknown\t7\nlast!\tknown\t7\nnext\tknown\t7\n", output);
    EXPECT_THAT(errors, HasSubstr("[refused!]"));
    EXPECT_EQ((Texts{"1 url0first", "1 url0refused!", "2 url0refused!", "3 url0last!", "4 url0next"}),
              daemon.received());
}

TEST_F(KatcTest, RefusesWhatTheDaemonWouldMisunderstand) {
    FakeDaemon daemon(socket, answerAll);
    EXPECT_EQ(1, run("printf '\\na\\nb\\0c\\n \\n\\nd\\r\\n' | katc -s socket -"));
    EXPECT_EQ("a\tknown\t5\n \tknown\t5\nd\tknown\t5\n", output);
    EXPECT_EQ(1, run("katc -s socket '' e"));
    EXPECT_EQ((Texts{"1 url0a", "1 url0 ", "1 url0d", "2 url0e"}), daemon.received());
}

TEST_F(KatcTest, ReplyThatIsNoneIsNoAnswer) {
    const std::string longest = reply(1, std::string(256, 'x'));
    for (const std::string& bytes :
         {longest.substr(0, 11), longest.substr(0, 267), reply(1, std::string(257, 'x')), reply(2, ""),
          number(1) + longest.substr(4)}) {
        FakeDaemon daemon(socket, [&](const std::string&) { return bytes; });
        EXPECT_EQ(1, run("katc -s socket a!")) << testing::PrintToString(bytes);
        EXPECT_EQ("", output);
        EXPECT_THAT(errors, HasSubstr("[a!]"));
    }
}

TEST_F(KatcTest, NamesAndJson) {
    FakeDaemon daemon(socket, [](const std::string& message) {
        if (message == "url0refused!") return std::string();
        return message == "url0none" ? reply(0, "") : reply(1, "\x05\x0c\xff");
    });
    writeFile(dir / "names", "# of the lists\n\n news and \"press\" = 12\r\nads=255 # bad\nother = 255\n");
    EXPECT_EQ(0, run("katc -s socket --categories names a none")) << errors;
    EXPECT_EQ("a\tknown\t5,news and \"press\",ads\nnone\tunknown\t\n", output);

    writeFile(dir / "lines", "a \"\\\xc3\xa4\xff\t\n\nrefused!\nnone\n");
    EXPECT_EQ(1, run("katc -s socket --json - <lines"));
    EXPECT_EQ("", errors);
    EXPECT_EQ(
        "{\"url\":\"a \\\"\\\\\xc3\xa4\xef\xbf\xbd\\t\",\"known\":true,\"categories\":[5,12,255]}\n"
        "{\"url\":\"\",\"error\":\"an empty URL is not asked: write one URL a line\"}\n"
        "{\"url\":\"refused!\",\"error\":\"the daemon closed the connection: its log says why\"}\n"
        "{\"url\":\"none\",\"known\":false,\"categories\":[]}\n",
        output);
    EXPECT_EQ(0, run("katc -s socket --json --categories names a")) << errors;
    EXPECT_EQ(
        "{\"url\":\"a\",\"known\":true,\"categories\":[5,12,255],"
        "\"names\":[null,\"news and \\\"press\\\"\",\"ads\"]}\n",
        output);
    // The daemon's absence ends the questions, with an object that says so.
    EXPECT_EQ(3, run("katc -s missing --json a b"));
    EXPECT_THAT(output,
                testing::MatchesRegex("[{]\"url\":\"a\",\"error\":\"no daemon answers on missing .*\"}\n"));
}

TEST_F(KatcTest, TimeLimits) {
    std::promise<void> release;
    const std::shared_future<void> released(release.get_future());
    std::optional<FakeDaemon> daemon(std::in_place, socket, [&](const std::string& message) {
        if (message == "url0hangs!" || message == "ctl:urls_stat") released.wait();
        return answerAll(message);
    });
    EXPECT_EQ(1, run("katc -s socket --timeout .05 hangs!"));
    EXPECT_THAT(errors, HasSubstr("[hangs!], no answer within 0.050 seconds"));
    EXPECT_EQ(1, run("katc -s socket ctl urls_stat --timeout 0.05"));
    EXPECT_THAT(errors, HasSubstr("no answer within 0.050 seconds"));
    release.set_value();
    daemon.reset();
    std::filesystem::remove(socket);
    EXPECT_EQ(3, run("katc -s socket --wait 0.05 a"));
    // It is started while katc tries.
    std::thread later([&] {
        usleep(50000);
        daemon.emplace(socket, answerAll);
    });
    EXPECT_EQ(0, run("katc -s socket --wait 30 ctl reload")) << errors;
    later.join();
}

TEST_F(KatcTest, OutputOrInputThatFailsIsNoSuccess) {
    FakeDaemon daemon(socket, answerAll);
    EXPECT_EQ(1, run("katc -s socket a b >/dev/full"));
    EXPECT_THAT(errors, HasSubstr("No space left"));
    EXPECT_EQ(Texts{"1 url0a"}, daemon.received());
    EXPECT_EQ(1, run("katc -s socket - <."));
    EXPECT_THAT(errors, HasSubstr("standard input"));
}

TEST_F(KatcTest, SettingsNameTheSocket) {
    std::filesystem::create_directory(dir / "conf");
    writeFile(dir / "conf/katd.ini", "[katd]\ndata_conn_string = socket ; here\n");
    FakeDaemon daemon(socket, answerAll);
    // Reading them is enough.
    EXPECT_EQ(0, run("chmod 400 conf/katd.ini; KATD_DIR=. katc a && KATD_DIR=$PWD/ katc a")) << errors;
    EXPECT_EQ(3, run("KATD_DIR=. katc -s other a"));
    for (const std::string line :
         {"katc a", "KATD_DIR=conf katc a",
          "chmod 600 conf/katd.ini; echo '[katd]\ndata_conn_string =' >conf/katd.ini; KATD_DIR=. katc a"}) {
        EXPECT_EQ(2, run(line)) << line;
        EXPECT_THAT(errors, HasSubstr("-s."));
    }
}

TEST_F(KatcTest, ARestartOfKatdInTheMiddleLosesNothing) {
    const Home home;
    home.rules("host slow.example delay 600000 5\n");
    Daemon first(home);
    ASSERT_TRUE(first.waitUntilServing());
    std::string lines, expected;
    for (int i = 0; i < 3000; ++i) {
        const std::string url = i == 1500    ? "slow.example"
                                : i % 2 == 0 ? "ads.example"
                                             : "shop.example/tools/x";
        lines += url + "\n";
        expected += url + "\tknown\t" + (i == 1500 ? "7" : i % 2 == 0 ? "12" : "5") + "\n";
    }
    writeFile(dir / "lines", lines);
    std::optional<Daemon> second;
    std::thread restart([&] {
        EXPECT_TRUE(
            eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "slow.example") == 1; }));
        first.kill(SIGKILL);
        home.rules("host slow.example 7\n");
        second.emplace(home);
    });
    EXPECT_EQ(0, run("katc -s " + home.socketPath() + " - <lines")) << errors;
    restart.join();
    EXPECT_EQ("", errors);
    EXPECT_TRUE(expected == output) << output.size();
}

}  // namespace
}  // namespace katd_test
