// The server with the stand-in engine, inside the test program.
#pragma once

#include <signal.h>
#include <sys/socket.h>

#include <thread>

#include "KatdUtil/Utils.h"
#include "UrlServer/Globals.h"
#include "UrlServer/UrlServer.h"
#include "UrlServer/UrlServerInstance.h"
#include "support/CapturedMessages.h"
#include "support/Client.h"
#include "support/Home.h"

namespace katd_test {

class ServerFixture : public testing::Test {
protected:
    ServerFixture() {
        signal(SIGPIPE, SIG_IGN);
        std::filesystem::remove(home().tracePath());
        for (const char* ending : {"", ".tmp"})
            std::filesystem::remove_all(cachePath() + ending);
        KATD_SPACE::ops.conf.setQueryTimeout(2, 1);
        KATD_SPACE::urlSvr = new KATD_SPACE::UrlServer;
        KATD_SPACE::urlSvr->urlManager.reloadUrlList(KATD_SPACE::ops.conf.getUrlsListPath(),
                                                     KATD_SPACE::ops.conf.getDomainsListPath());
    }
    ~ServerFixture() override {
        delete KATD_SPACE::urlSvr;
        KATD_SPACE::urlSvr = nullptr;
        home().rules("");
    }

    // One for the whole program: the settings are loaded once.
    static const Home& home() {
        static const Home made;
        static const bool loaded = [] {
            setenv("ASAPSDK_RULES", made.rulesPath().c_str(), 1);
            setenv("ASAPSDK_TRACE", made.tracePath().c_str(), 1);
            return KATD_SPACE::ops.conf.loadConfig(made.path().c_str());
        }();
        EXPECT_TRUE(loaded);
        return made;
    }
    static std::string cachePath() { return KATD_SPACE::ops.conf.getCacheFilePath(); }

    struct Result {
        std::vector<unsigned> categories;
        bool matched;
    };
    static Result scan(const std::string& url, bool withRetry = false, unsigned size = 256) {
        unsigned char bytes[256] = {};
        bool matched = true;
        const unsigned stored =
            KATD_SPACE::UrlServerInstance::scanOneUrl(url.c_str(), bytes, size, withRetry, &matched);
        return {{bytes, bytes + stored}, matched};
    }

    // The "all/matched" queries that the server has counted.
    static std::string counters() {
        unsigned all = 0, matched = 0;
        KATD_SPACE::urlSvr->getUrlNumber(&all, &matched);
        return std::to_string(all) + "/" + std::to_string(matched);
    }

    // The messages so far, a line each: their kind and text.
    std::string told() const {
        std::string lines;
        for (const std::string& text : messages.texts())
            lines += text + "\n";
        return lines;
    }

    CapturedMessages messages;
};

// A pair of connected sockets; the caller closes both.
inline int socketPair(int* serverEnd, int type = SOCK_STREAM) {
    int fds[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds));
    *serverEnd = fds[1];
    return fds[0];
}

// A connection to the server: the client's end, and a thread that serves the other one.
class Connection {
    int serverEnd_ = -1;

public:
    Connection() : client(socketPair(&serverEnd_)), instance_(serverEnd_) {
        thread_ = std::thread([this] {
            EXPECT_EQ(-1, instance_.start());
            close(serverEnd_);
        });
    }
    ~Connection() {
        client.hangUp();
        thread_.join();
    }
    // The server's side, to be looked at only while no request is under way.
    const KATD_SPACE::UrlServerInstance& instance() const { return instance_; }

    Client client;

private:
    KATD_SPACE::UrlServerInstance instance_;
    std::thread thread_;
};

}  // namespace katd_test
