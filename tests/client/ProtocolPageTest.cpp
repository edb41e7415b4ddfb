// The examples of the page on the protocol, as katd itself answers them.

#include "support/Client.h"
#include "support/Daemon.h"
#include "support/Home.h"

using namespace katd_test;

namespace {

TEST(ProtocolPage, KatdAnswersAsItsExamplesDo) {
    const Home home;
    home.rules("host museum.example 5,44\n");
    Daemon daemon(home);
    ASSERT_TRUE(daemon.waitUntilServing());
    std::istringstream page(readFile(KATD_PROTOCOL_PAGE));
    std::unique_ptr<Client> client;
    int sent = 0, received = 0, ends = 0;
    for (std::string line; std::getline(page, line);) {
        const std::string who = line.substr(0, 12);
        if (who != "    client  " && who != "    katd    ") {
            client.reset();
            continue;
        }
        if (client == nullptr) client = std::make_unique<Client>(home.socketPath());
        const bool isEnd = line.find("closes the connection") != line.npos;
        // "10 00 2f   in words", or the words that katd closes the connection.
        std::string bytes;
        std::istringstream words(isEnd ? "" : line.substr(12, line.find("   ", 12) - 12));
        for (std::string word; words >> word;)
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
        if (who == "    client  ") {
            EXPECT_TRUE(client->send(bytes));
            ++sent;
            continue;
        }
        std::string got(isEnd ? 1 : bytes.size(), '\0');
        const ssize_t size = recv(client->fd(), &got[0], got.size(), MSG_WAITALL);
        EXPECT_EQ(bytes, got.substr(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)))) << line;
        ++(isEnd ? ends : received);
    }
    EXPECT_THAT((std::vector{sent, received, ends}),
                testing::ElementsAre(testing::Ge(10), testing::Ge(7), 1));
}

}  // namespace
