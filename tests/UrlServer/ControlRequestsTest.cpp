#include "UrlServer/ServerFixture.h"

using namespace katd_test;
using KATD_SPACE::ops;

namespace {

class ControlRequests : public ServerFixture {
protected:
    ~ControlRequests() override { ops.logLevel = 3; }

    // Sends a control request; what it made the daemon say.
    std::string toldOn(const std::string& body) {
        messages.clear();
        EXPECT_TRUE(connection.client.control(body)) << body;
        return told();
    }

    Connection connection;
};

TEST_F(ControlRequests, SetsTheMessageLevel) {
    EXPECT_THAT(toldOn("log_level=" + number(1)), testing::HasSubstr("set log_level [1]"));
    EXPECT_EQ(1, ops.logLevel);
    EXPECT_THAT(toldOn("log_level=" + number(3)), testing::Not(testing::HasSubstr("set log_level")))
        << "the old level decides";
    EXPECT_EQ(3, ops.logLevel);
    for (const std::uint32_t bad : {4u, 0xFFFFFFFFu}) {
        EXPECT_THAT(toldOn("log_level=" + number(bad)),
                    testing::HasSubstr("ERR bad loglevel in ctrl request, ["));
        EXPECT_EQ(3, ops.logLevel);
    }
    EXPECT_THAT(toldOn("log_level=" + number(4)), testing::HasSubstr("[4]"));
    EXPECT_THAT(toldOn("log_level=" + number(0)), testing::HasSubstr("set log_level [0]"));
    EXPECT_EQ("", toldOn("reboot"));
    EXPECT_THAT(toldOn("urls_stat"), testing::HasSubstr("All urls [0], matched from cache [0]"));
}

TEST_F(ControlRequests, SetsTheRetries) {
    EXPECT_THAT(toldOn("timeout=" + number(7) + number(500)), testing::HasSubstr("set timeout [7:500]"));
    unsigned times = 0;
    unsigned interval = 0;
    ops.conf.getQueryTimeout(&times, &interval);
    EXPECT_EQ(7u, times);
    EXPECT_EQ(500u, interval);
}

TEST_F(ControlRequests, RefusesWhatItDoesNotKnowAndChangesNothing) {
    const struct {
        std::string body;
        const char* shown;
    } cases[] = {{"reboot", "reboot"},
                 {"log_level=" + number(1).substr(0, 3), "log_level=\x01"},
                 {"log_level=", "log_level="},
                 {"timeout=" + number(9) + number(9).substr(0, 3), "timeout=\t"},
                 {"urls_sta", "urls_sta"}};
    for (const auto& bad : cases) {
        EXPECT_THAT(toldOn(bad.body),
                    testing::HasSubstr(std::string("Unknown ctrl request [") + bad.shown + "]"));
    }
    unsigned times = 0;
    unsigned interval = 0;
    ops.conf.getQueryTimeout(&times, &interval);
    EXPECT_EQ(2u, times);
    EXPECT_EQ(3, ops.logLevel);
    EXPECT_TRUE(connection.client.ask("ads.example")) << "the connection stays open";
}

TEST_F(ControlRequests, TellsTheStatistics) {
    home().rules("host known.example 5\n");
    for (const char* url : {"known.example/1", "known.example/2", "known.example/3", "unknown.example"}) {
        ASSERT_TRUE(connection.client.ask(url));
    }
    EXPECT_THAT(toldOn("urls_stat"),
                testing::HasSubstr("All urls [4], matched from cache [3], percentage [%75]"));
}

TEST_F(ControlRequests, ReloadsTheLists) {
    EXPECT_FALSE(connection.client.ask("late.example")->header.matched);
    const std::string before = readFile(home() / "domains.list");
    writeFile(home() / "domains.list", listFile({"077|late.example"}));
    toldOn("assis_reload, whatever follows");
    EXPECT_EQ(std::vector<unsigned>{77}, connection.client.ask("late.example")->categories);
    EXPECT_FALSE(connection.client.ask("ads.example")->header.matched);
    writeFile(home() / "domains.list", before);
}

}  // namespace
