// katc helper, kept running as squid keeps it.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <set>

#include "client/ShellTest.h"
#include "support/Daemon.h"

namespace katd_test {
namespace {

// The helper behind a socket.
class Helper {
public:
    Helper(const std::string& options, const std::string& errorPath) {
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        fd_ = ends[0];
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDIN_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c",
                  ("exec " KATC_BINARY " helper " + options + " 2>" + errorPath).c_str(), nullptr);
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
    // The next line; "none" if none comes for half a minute.
    std::string receive() {
        std::size_t size = 0;
        while ((size = received_.find('\n')) == std::string::npos) {
            pollfd events{fd_, POLLIN, 0};
            char bytes[65536];
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
        waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    int fd_ = -1;
    pid_t pid_ = -1;
    std::string received_;
};

TEST(HelperTest, ChannelsAreServedSideBySide) {
    const Home home(Settings{{"ctengine_query_timeout", "0"}});
    home.rules("host none.example final\nhost hung.example hang\n");
    Daemon daemon(home);
    ASSERT_TRUE(daemon.waitUntilServing());
    Helper helper(
        "rewrite --block 12 --redirect 'http://b.example/{url}' --concurrency --connections 5 --timeout 0 "
        "-s " +
            home.socketPath(),
        home / "err");
    EXPECT_EQ("5 OK", helper.ask("5 none.example"));
    helper.send("0 http://hung.example/\n");
    ASSERT_TRUE(
        eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", "http://hung.example/") == 1; }));
    // Never answered while the engine hangs; all others are. Their answers fill the socket before any is
    // read, so that each thread writes in several pieces.
    const std::string path(9000, 'x'), tooLong(3000000, 'x');
    std::set<std::string> received, expected;
    std::thread writer([&] {
        for (int i = 1; i <= 600; ++i)
            helper.send(std::to_string(i) + " " +
                        (i == 150     ? tooLong
                         : i % 3 != 0 ? "ads.example/" + path
                                      : "none.example") +
                        " -\n");
    });
    usleep(300000);
    for (int i = 1; i <= 600; ++i) {
        expected.insert(std::to_string(i) +
                        (i == 150
                             ? " BH message=\"the line has no URL where --url-field says, or is too long\""
                         : i % 3 != 0 ? " OK status=302 url=\"http://b.example/ads.example%2F" + path + "\""
                                      : " OK"));
        received.insert(helper.receive());
    }
    writer.join();
    EXPECT_TRUE(expected == received);
    daemon.kill(SIGKILL);
    EXPECT_THAT(helper.receive(), testing::MatchesRegex("0 BH message=\".*\""));
    EXPECT_EQ(0, helper.finish());
}

class OutlivesTheDaemon : public ShellTest {};

TEST_F(OutlivesTheDaemon, AndReportsThatOnce) {
    const std::string listed = "OK category_=12 log=12 message=\"category 12\"",
                      page = "OK status=302 url=\"http://b.example\"";
    const Texts rows[] = {
        {"acl --on-failure err", "", listed, "ERR"},
        {"acl --on-failure ok --concurrency", "3 ", listed, "OK"},
        {"rewrite --block 12 --on-failure redirect --redirect http://b.example", "", page, page}};
    for (const Texts& row : rows) {
        auto daemon = std::make_unique<FakeDaemon>(socket, answer);
        Helper helper(row[0] + " -s " + socket, dir / "err");
        const std::string& channel = row[1];
        for (int i = 1; i <= 3; ++i) {
            EXPECT_EQ(channel + row[2], helper.ask(channel + "ads.example"));
            daemon.reset();
            for (int j = 0; j < 5; ++j)
                EXPECT_EQ(channel + row[3], helper.ask(channel + "ads.example"));
            EXPECT_EQ(channel + "BH message=\"the URL has no host\"", helper.ask(channel + ":1"));
            daemon = std::make_unique<FakeDaemon>(socket, answer);
        }
        EXPECT_EQ(channel + row[2], helper.ask(channel + "ads.example"));
        EXPECT_EQ(0, helper.finish());
        EXPECT_THAT(readFile(dir / "err"), testing::MatchesRegex("(katc helper: no daemon answers on [^\n]*\n"
                                                                 "katc helper: katd answers again.\n){3}"));
    }
}

}  // namespace
}  // namespace katd_test
