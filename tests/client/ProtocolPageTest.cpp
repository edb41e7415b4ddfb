// The examples of the page on the protocol, as katd itself answers them.
#include <gmock/gmock.h>

#include "support/Client.h"
#include "support/Daemon.h"
#include "support/Home.h"

namespace katd_test {
namespace {

// The bytes of "10 00 2f   in words".
std::string bytesOf(const std::string& text) {
    std::istringstream words(text.substr(0, text.find("   ")));
    std::string bytes;
    for (std::string word; words >> word;) {
        EXPECT_THAT(word, testing::MatchesRegex("[0-9a-f][0-9a-f]"));
        bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}

TEST(ProtocolPage, KatdAnswersAsItsExamplesDo) {
    const Home home;
    home.rules("host museum.example 5,44\n");
    Daemon daemon(home);
    ASSERT_TRUE(daemon.waitUntilServing());
    std::istringstream page(readFile(KATD_PROTOCOL_PAGE));
    const std::string ofClient = "    client  ", ofKatd = "    katd    ";
    std::string toSend;
    int exchanges = 0, ends = 0;
    std::unique_ptr<Client> client;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind(ofClient, 0) == 0) {
            if (client == nullptr) client = std::make_unique<Client>(home.socketPath());
            toSend += bytesOf(line.substr(ofClient.size()));
        } else if (line.rfind(ofKatd, 0) == 0) {
            ASSERT_TRUE(client != nullptr && (toSend.empty() || client->send(toSend))) << line;
            exchanges += toSend.empty() ? 0 : 1;
            toSend.clear();
            const bool isEnd = line.find("closes the connection") != line.npos;
            ends += isEnd ? 1 : 0;
            const std::string expected = isEnd ? "" : bytesOf(line.substr(ofKatd.size()));
            std::string received(isEnd ? 1 : expected.size(), '\0');
            const ssize_t size = recv(client->fd(), &received[0], received.size(), MSG_WAITALL);
            received.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
            EXPECT_EQ(expected, received) << line;
        } else {
            client.reset();
        }
    }
    EXPECT_EQ("", toSend);
    EXPECT_EQ(4, exchanges);
    EXPECT_EQ(1, ends);
}

}  // namespace
}  // namespace katd_test
