// The real katc, in front of a daemon that answers as the test wants.
#include <gmock/gmock.h>

#include <csignal>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "KatdUtil/Utils.h"
#include "support/Client.h"
#include "support/TempDir.h"

namespace katd_test {
namespace {

using KATD_SPACE::Utils;
using testing::HasSubstr;
using Texts = std::vector<std::string>;

std::string reply(char matched, const std::string& categories) {
    return number(0) + number(static_cast<std::uint32_t>(categories.size())) + std::string{matched, 0, 0, 0} +
           categories;
}

std::string answerAll(const std::string&) {
    return reply(1, "\x05");
}

// Speaks the daemon's side of the protocol on a socket of its own, with replies that the test chooses.
class FakeDaemon {
public:
    // What to send for a message, the bytes behind its length. A "!" at its end ends the connection as well.
    using Handler = std::function<std::string(const std::string& message)>;

    FakeDaemon(const std::string& path, Handler handler)
        : path_(path), handler_(std::move(handler)), socket_(Utils::createLocalTcpService(path.c_str(), 8)) {
        std::signal(SIGPIPE, SIG_IGN);
        thread_ = std::thread([this] { serve(); });
    }
    ~FakeDaemon() {
        shutdown(socket_, SHUT_RDWR);  // ends accept()
        thread_.join();
        close(socket_);
    }
    // Each message behind the number of its connection: "1 url0a.example".
    Texts received() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return received_;
    }

private:
    void serve() {
        for (int number = 1, fd = -1; (fd = accept(socket_, nullptr, nullptr)) >= 0; ++number) {
            while (serveOne(fd, number)) {
            }
            close(fd);
            writeFile(path_ + ".closed" + std::to_string(number), "");  // for who waits for it
        }
    }
    bool serveOne(int fd, int connection) {
        std::uint32_t length = 0;
        if (Utils::readn(fd, &length, sizeof length) != sizeof length) return false;
        std::string message(length, '\0');
        if (Utils::readn(fd, &message[0], length) != length) return false;
        const std::string reply = handler_(message);
        const std::lock_guard<std::mutex> guard(mutex_);
        received_.push_back(std::to_string(connection) + " " + message);
        return Utils::writen(fd, reply.data(), static_cast<unsigned>(reply.size())) != 0 &&
               message.back() != '!';
    }

    const std::string path_;
    const Handler handler_;
    const int socket_;
    mutable std::mutex mutex_;
    Texts received_;  // guarded by mutex_
    std::thread thread_;
};

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

TEST_F(KatcTest, PrintsEachAnswerBeforeTheNextQuestion) {
    FakeDaemon daemon(socket, [this](const std::string& message) {
        return reply(1, std::to_string(readFile(dir / "out").size()) + message.back());
    });
    EXPECT_EQ(0, run("printf 'a/3\\na/1\\nno.line.end' | katc -s socket -")) << errors;
    // The characters that had been printed before each question, and the last one of the URL.
    EXPECT_EQ("a/3\tknown\t48,51\na/1\tknown\t49,54,49\nno.line.end\tknown\t51,53,100\n", output);
    EXPECT_EQ((Texts{"1 url0a/3", "1 url0a/1", "1 url0no.line.end"}), daemon.received());
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
        "ctl timeout 1 4294967296|ctl timeout -1 1|ctl timeout 1 +1|ctl timeout 1 0x10|ctl timeout 1 ''|");
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
    for (const std::string& path : Texts{"missing", "dead", std::string(120, 'x')}) {
        for (const std::string request : {"a b", "ctl reload"}) {
            EXPECT_EQ(3, run("katc --socket " + path + " " + request));
            EXPECT_THAT(errors, HasSubstr(path));
            EXPECT_EQ(std::string::npos, errors.find("[b]")) << "goes on without a daemon: " << errors;
        }
    }
}

TEST_F(KatcTest, GoesOnOverANewConnectionWhenTheDaemonCloses) {
    FakeDaemon daemon(
        socket, [](const std::string& message) { return message == "url0refused!" ? "" : reply(1, "\x07"); });
    EXPECT_EQ(1, run("{ printf 'first\\nrefused!\\nlast!\\n'\n"
                     "while [ ! -e socket.closed2 ]; do sleep 0.01; done\necho next; } | katc -s socket -"));
    EXPECT_EQ("first\tknown\t7\nlast!\tknown\t7\nnext\tknown\t7\n", output);
    EXPECT_THAT(errors, HasSubstr("[refused!]"));
    EXPECT_EQ((Texts{"1 url0first", "1 url0refused!", "2 url0last!", "3 url0next"}), daemon.received());
}

TEST_F(KatcTest, RefusesWhatTheDaemonWouldMisunderstand) {
    FakeDaemon daemon(socket, answerAll);
    EXPECT_EQ(1, run("printf '\\na\\nb\\0c\\n \\n\\nd\\n' | katc -s socket -"));
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

}  // namespace
}  // namespace katd_test
