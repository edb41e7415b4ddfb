// The real katc helper, asked as squid asks, with the real katd behind it.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>
#include <set>

#include "support/Daemon.h"

namespace katd_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using Texts = std::vector<std::string>;

Texts linesOf(const std::string& text) {
    Texts lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// The helper behind a socket, as squid keeps it.
class Helper {
public:
    Helper(const Home& home, const std::string& options) : errorPath_(home / "helper.err") {
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        fd_ = ends[0];
        const std::string line = "exec " KATC_BINARY " helper " + options + " 2>" + errorPath_;
        const std::string socket = home.socketPath();
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDIN_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", (line + " -s " + socket).c_str(), nullptr);
            _exit(126);
        }
        close(ends[1]);
    }
    ~Helper() {
        if (pid_ > 0) finish();
        close(fd_);
    }
    void send(const std::string& text) {
        EXPECT_EQ(static_cast<ssize_t>(text.size()), ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL));
    }
    // The next line; "none" when there is none for half a minute.
    std::string receive() {
        std::size_t size = 0;
        while ((size = received_.find('\n')) == std::string::npos) {
            pollfd events{fd_, POLLIN, 0};
            char bytes[4096];
            const ssize_t count = poll(&events, 1, 30000) == 1 ? recv(fd_, bytes, sizeof bytes, 0) : 0;
            if (count <= 0) return "none";
            received_.append(bytes, static_cast<std::size_t>(count));
        }
        const std::string line = received_.substr(0, size);
        received_.erase(0, size + 1);
        return line;
    }
    std::string ask(const std::string& line) {
        send(line + "\n");
        return receive();
    }
    // Ends its input; its exit status.
    int finish() {
        shutdown(fd_, SHUT_WR);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string errors() const { return readFile(errorPath_); }

private:
    const std::string errorPath_;
    int fd_ = -1;
    pid_t pid_ = -1;
    std::string received_;
};

class HelperTest : public testing::Test {
protected:
    HelperTest() {
        home.configure({{"ctengine_query_timeout", "0"}});
        home.rules(
            "host multi.example 5,44,200\nhost none.example final\nhost learnt.example unknown then 7\n"
            "host hung.example hang\nurl port.example:81/ 9\nurl http://%41.example/%41%2541 9\n");
        writeFile(home / "names", "# of the lists\n\nonline games = 44 # and odds\na\"b\\c=12\nlast = 44\n");
        start();
    }
    void start() {
        daemon = std::make_unique<Daemon>(home);
        ASSERT_TRUE(daemon->waitUntilServing());
    }
    // Runs a shell line in the home; the exit status.
    int run(const std::string& line) {
        const std::string script = "cd " + home.path() +
                                   "; unset KATD_DIR; PATH=$(dirname " KATC_BINARY "):$PATH; { " + line +
                                   "\n} >out 2>err";
        const int status = std::system(script.c_str());
        output = readFile(home / "out");
        errors = readFile(home / "err");
        return WEXITSTATUS(status);
    }
    // The answers to lines that are there from the beginning.
    Texts answers(const std::string& options, const std::string& lines) {
        writeFile(home / "lines", lines);
        EXPECT_EQ(0, run("KATD_DIR=$PWD katc helper " + options + " <lines")) << errors;
        EXPECT_EQ("", errors);
        return linesOf(output);
    }

    Home home;
    std::unique_ptr<Daemon> daemon;
    std::string output, errors;
};

TEST_F(HelperTest, AclLinesAreAnsweredInOrder) {
    const std::pair<std::string, std::string> table[] = {
        {"http://ads.example/ -", "OK category_=12 log=12 message=\"a\\\"b\\\\c\""},
        {"http://user:pa@ss@NEWS.example.:8080/a?b#c", "ERR category_=34 log=34"},
        {"ads.example:443 1.2.3.4 GET", "OK category_=12 log=12 message=\"a\\\"b\\\\c\""},
        {"https://multi.example/",
         "OK category_=5 category_=44 category_=200 log=5,44,200 message=\"online games\""},
        {"%61ds.example", "OK category_=12 log=12 message=\"a\\\"b\\\\c\""},
        {"ads.example%00.x/", "ERR"},
        {"none.example", "ERR"},
        // What stands behind the host is asked as squid has it: katd itself decodes it for its lists.
        {"http://shop.example/to%6fls", "ERR category_=5 log=5"},
        {"http://shop.example/to%256fls", "ERR"},
        {"http://unknown.example/", "ERR"},
        {"-", "BH message=\"the line has no URL where --url-field says, or is too long\""},
        {"", "BH message=\"the line has no URL where --url-field says, or is too long\""},
        {":443", "BH message=\"the URL has no host\""},
        {"7 http://ads.example/ -",
         "BH message=\"the line has a number for a URL: with concurrency in squid.conf, give "
         "--concurrency\""}};
    std::string lines;
    Texts expected;
    for (const auto& [line, answer] : table) {
        lines += line + "\n";
        expected.push_back(answer);
    }
    lines.pop_back();  // the last one is whole without its line feed
    EXPECT_EQ(expected, answers("acl --categories names --block 12,44", lines));
    EXPECT_EQ(expected, answers("acl --categories names --allow 'last, a\"b\\c' --batch 08", lines));
}

TEST_F(HelperTest, ALineThatIsTooLongIsNotAskedInPart) {
    const std::string tooLong = "http://ads.example/" + std::string(2000000, 'x');
    const std::string problem = "BH message=\"the line has no URL where --url-field says, or is too long\"";
    EXPECT_EQ((Texts{problem, "ERR", problem}), answers("acl", tooLong + "\nnone.example\n" + tooLong));
}

TEST_F(HelperTest, OptionsChangeWhatIsAskedAndAnswered) {
    const std::string any = "OK category_=12 log=12 message=\"category 12\"";
    const std::string line = "x %5B::1%5D:443 http://ads.example/\n";
    EXPECT_EQ(Texts{any}, answers("acl --url-field 3", line));
    EXPECT_EQ(Texts{"ERR"}, answers("acl --url-field 2", line));
    EXPECT_EQ(1, home.engineCalls("CSDKMain_ClassifyUrl", "[::1]"));
    EXPECT_THAT(answers("acl --url-field 4", line)[0], HasSubstr("BH "));
    EXPECT_EQ(Texts{"OK category_=9 log=9 message=\"category 9\""},
              answers("acl --keep-port", "http://u@port.example..:81/"));
    EXPECT_EQ(Texts{"BH message=\"the URL has no host\""}, answers("acl --keep-port", "u@.:81"));
    EXPECT_EQ(Texts{"OK"}, answers("acl --on-unknown ok", "unknown.example"));
    EXPECT_EQ(Texts{"BH message=\"katd has no certain answer\""},
              answers("acl --on-unknown bh", "unknown.example"));
    EXPECT_EQ(Texts{"ERR"}, answers("acl --on-unknown ok", "none.example"));
    EXPECT_EQ(Texts{"OK category_=7 log=7 message=\"category 7\""}, answers("acl --retry", "learnt.example"));
}

TEST_F(HelperTest, RewritingRedirects) {
    const std::string page = "http://block.example/page?";
    const std::string lines =
        "http://ads.example/a?b=%20\"&é 1.2.3.4/x - GET myip=1\nmulti.example:443 1.2.3.4/x - CONNECT\n"
        "http://news.example/\nhttp://block.example/page?c=12 "
        "-\nhttp://none.example/\nhttp://%41.example/%41%2541\n";
    EXPECT_EQ(
        (Texts{"OK status=302 url=\"" + page +
                   "c=12&n=a%22b%5Cc&u=http%3A%2F%2Fads.example%2Fa%3Fb%3D%2520%22%26%C3%A9\"",
               "OK status=302 url=\"" + page + "c=44&n=online%20games&u=multi.example%3A443\"", "OK", "OK",
               "OK",
               "OK status=302 url=\"" + page + "c=9&n=9&u=http%3A%2F%2F%2541.example%2F%2541%252541\""}),
        answers("rewrite --categories names --block 9-12 --block 44 --redirect '" + page +
                    "c={category}&n={name}&u={url}'",
                lines));
    // The page is known in the form in which squid asks for it.
    const Texts pages[] = {
        {"HTTP://u@B.Example./b?u={url}", "http://b.example/b?u=x", "http://b.example/c"},
        {"http://b.example:80/b?u={url}", "http://b.example/b?u=x", "http://b.example:81/b?u=x"},
        {"http://b.example?u={url}", "http://b.example/?u=x", "http://b.example/b?u=x"},
        {"http://b.example/b#u={url}", "http://b.example/b", "http://a.example/b"},
        {"http://b.example:8080/b", "http://b.example:8080/b", "http://b.example/b"},
        {"https://b.example/b?u={url}", "b.example:443", "b.example:80"},
        {"https://b.example:8443/b", "b.example:8443", "b.example:443"}};
    for (const Texts& row : pages) {
        const Texts got = answers("rewrite --allow 200 --redirect '" + row[0] + "'", row[1] + "\n" + row[2]);
        ASSERT_EQ(2U, got.size()) << row[0];
        EXPECT_EQ("OK", got[0]) << row[0];
        EXPECT_THAT(got[1], HasSubstr("OK status=302")) << row[0];
    }
    const std::string to = "OK status=307 url=\"https://b.example\"";
    EXPECT_EQ((Texts{to, "OK", to, "OK"}),
              answers("rewrite --allow 200 --status 307 --redirect https://b.example",
                      "ads.example\nmulti.example\nunknown.example\nhttps://b.example/x"));
}

TEST_F(HelperTest, ChannelsAreServedSideBySide) {
    Helper helper(home, "acl --concurrency --connections 3 --timeout 0");
    EXPECT_EQ("5 ERR", helper.ask("5 none.example"));
    helper.send("0 http://hung.example/\n");
    ASSERT_TRUE(
        eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "http://hung.example/") == 1; }));
    // Never answered while the engine hangs; all others are.
    const std::string longUrl = "http://ads.example/" + std::string(9000, 'x');
    const std::string tooLong = std::string(3000000, 'x');
    std::set<std::string> received, expected;
    for (int i = 1; i <= 300; ++i) {
        const std::string channel = std::to_string(i);
        const bool isListed = i % 3 != 0;
        helper.send(channel + " " + (i == 150 ? tooLong : isListed ? longUrl : "none.example") + " -\n");
        expected.insert(
            channel + (i == 150 ? " BH message=\"the line has no URL where --url-field says, or is too long\""
                       : isListed ? " OK category_=12 log=12 message=\"category 12\""
                                  : " ERR"));
        received.insert(helper.receive());
    }
    for (int i = 1; i <= 300; ++i)
        helper.send(std::to_string(i) + "0 news.example\n");
    for (int i = 1; i <= 300; ++i) {
        expected.insert(std::to_string(i) + "0 OK category_=34 log=34 message=\"category 34\"");
        received.insert(helper.receive());
    }
    EXPECT_EQ(expected, received);
    EXPECT_THAT(helper.ask("no channel"), HasSubstr("BH message=\"the line has no channel-ID"));
    daemon->kill(SIGKILL);
    EXPECT_THAT(helper.receive(), MatchesRegex("0 BH message=\".*\""));
    EXPECT_EQ(0, helper.finish());
}

TEST_F(HelperTest, OutlivesTheDaemon) {
    for (const std::string mode : {"acl --on-failure err", "acl --on-failure ok --concurrency",
                                   "rewrite --block 12 --on-failure redirect --redirect http://b.example"}) {
        Helper helper(home, mode);
        const std::string channel = contains(mode, "concurrency") ? "3 " : "";
        const std::string listed = contains(mode, "rewrite")
                                       ? "OK status=302 url=\"http://b.example\""
                                       : "OK category_=12 log=12 message=\"category 12\"";
        const std::string away = contains(mode, "err") ? "ERR" : contains(mode, "ok") ? "OK" : listed;
        for (int i = 1; i <= 3; ++i) {
            EXPECT_EQ(channel + listed, helper.ask(channel + "ads.example"));
            daemon->kill(SIGKILL);
            for (int j = 0; j < 5; ++j)
                EXPECT_EQ(channel + away, helper.ask(channel + "ads.example"));
            EXPECT_EQ(channel + "BH message=\"the URL has no host\"", helper.ask(channel + ":1"));
            start();
        }
        EXPECT_EQ(channel + listed, helper.ask(channel + "ads.example"));
        EXPECT_EQ(0, helper.finish());
        // Told when it went and when it came, not for each URL.
        const Texts told = linesOf(helper.errors());
        EXPECT_EQ(6U, told.size()) << helper.errors();
        for (std::size_t i = 0; i < told.size(); ++i)
            EXPECT_THAT(told[i], HasSubstr(i % 2 == 0 ? "no daemon answers on" : "katd answers again"));
    }
}

TEST_F(HelperTest, WaitsAsLongAsItIsTold) {
    Helper waiting(home, "acl --wait 60");
    daemon->kill(SIGKILL);
    waiting.send("ads.example\n");
    start();
    EXPECT_THAT(waiting.receive(), HasSubstr("OK category_=12"));
    EXPECT_EQ("", waiting.errors());
    Helper limited(home, "acl --timeout 0.2");
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(limited.ask("hung.example"), HasSubstr("BH message=\"no answer within the time limit"));
        EXPECT_EQ("ERR", limited.ask("none.example"));
    }
    EXPECT_EQ(0, limited.finish());
    // Late is not gone, and is not told for each URL.
    EXPECT_EQ(1U, linesOf(limited.errors()).size()) << limited.errors();
    EXPECT_THAT(limited.errors(), HasSubstr("no answer within the time limit"));
    daemon->kill(SIGKILL);
}

TEST_F(HelperTest, EndsWithItsInputOrOutput) {
    const std::string serve = "katc helper acl -s data/katd.sock";
    EXPECT_EQ(0, run("{ yes none.example | " + serve + "; echo $? >status; } | head -n 1"));
    EXPECT_EQ("ERR\n", output);
    EXPECT_EQ("", errors);
    EXPECT_EQ("0\n", readFile(home / "status"));
    EXPECT_EQ(1, run("echo none.example | " + serve + " >/dev/full"));
    EXPECT_THAT(errors, HasSubstr("cannot write an answer (No space left"));
    EXPECT_EQ(1, run(serve + " --concurrency <."));
    EXPECT_THAT(errors, HasSubstr("cannot read standard input (Is a directory)"));
}

TEST_F(HelperTest, BadUsageIsTold) {
    for (const std::string line : {"none", "good = 2", "12 = 1", "33-34 = 1", "a, b = 1"}) {
        writeFile(home / "bad.names", "good = 1\ngood=1\n" + line + "\n");
        EXPECT_EQ(2, run("katc helper acl --categories bad.names </dev/null")) << line;
        EXPECT_THAT(errors, HasSubstr("bad.names, line 3: ")) << line;
    }
    const std::string redirect = "|rewrite --block 5 --redirect ";
    std::istringstream bad(
        "|other|acl more|acl --no-such|acl --block 256|acl --block 9-5|acl --block games|acl --block ,|"
        "acl --block 1 --allow 2|acl --categories missing|acl --categories .|acl --categories bad.names|acl --url-field 0|"
        "acl --connections 65|acl --batch 0|acl --batch 0x10|acl --timeout -1|acl --timeout 0x10|acl "
        "--timeout .|acl --wait soon|acl --on-failure redirect|"
        "acl --on-unknown no|acl --redirect http://b.example/|acl -s " +
        std::string(120, 'x') + "|rewrite --redirect http://b.example/|rewrite --block 5" + redirect +
        "b.example" + redirect + "'http://b.example/ x'" + redirect + "http://{url}" + redirect +
        "http://b.example{url}/" + redirect + "http://b.example/{no}" + redirect + "http://b.example/{url" +
        redirect + "http:///" + redirect + "http://:80/" + redirect + "http://b.example --status 300");
    for (std::string arguments; std::getline(bad, arguments, '|');) {
        EXPECT_EQ(2, run("echo none.example | katc helper " + arguments)) << arguments;
        EXPECT_EQ(0U, errors.find("katc helper: ")) << arguments << errors;
        EXPECT_EQ("", output) << arguments;
    }
    for (const std::string option : {"--help", "--version"}) {
        EXPECT_EQ(0, run("katc helper " + option));
        EXPECT_THAT(output, HasSubstr("katc helper"));
    }
}

}  // namespace
}  // namespace katd_test
