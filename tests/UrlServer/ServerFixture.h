// The server with the stand-in engine, inside the test program.
#ifndef KATD_TESTS_URLSERVER_SERVERFIXTURE_H
#define KATD_TESTS_URLSERVER_SERVERFIXTURE_H

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "KatdUtil/Utils.h"
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
    static Home& home() {
        static Home* const home = [] {
            Home* made = new Home;
            setenv("ASAPSDK_RULES", made->rulesPath().c_str(), 1);
            setenv("ASAPSDK_TRACE", made->tracePath().c_str(), 1);
            EXPECT_TRUE(KATD_SPACE::ops.conf.loadConfig(made->path().c_str()));
            static const std::unique_ptr<Home> owner(made);
            return made;
        }();
        return *home;
    }
    static std::string cachePath() { return KATD_SPACE::ops.conf.getCacheFilePath(); }

    // What "all/matched" queries the server has counted.
    static std::string counters() {
        unsigned all = 0;
        unsigned matched = 0;
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

// A connection to the server: the client's end, and a thread that serves the other one.
class Connection {
public:
    Connection() : Connection(pair()) {}
    ~Connection() {
        client.hangUp();
        thread_.join();
    }
    // The server's side of it, to be looked at only while no request is under way.
    const KATD_SPACE::UrlServerInstance& instance() const { return *instance_; }

private:
    struct Ends {
        int client;
        int server;
    };
    static Ends pair() {
        int fds[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds));
        return {fds[0], fds[1]};
    }
    explicit Connection(Ends ends)
        : client(ends.client), instance_(new KATD_SPACE::UrlServerInstance(ends.server)) {
        thread_ = std::thread([this, ends] {
            EXPECT_EQ(-1, instance_->start());
            close(ends.server);
        });
    }

public:
    Client client;

private:
    std::unique_ptr<KATD_SPACE::UrlServerInstance> instance_;
    std::thread thread_;
};

}  // namespace katd_test

#endif
