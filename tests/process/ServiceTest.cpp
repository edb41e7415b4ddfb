// The daemon as its clients see it.
#include <sys/resource.h>
#include <sys/stat.h>

#include <memory>

#include "faults/Faults.h"
#include "process/HeldLog.h"
#include "support/Client.h"
#include "support/Daemon.h"

using namespace katd_test;
using testing::HasSubstr;
using testing::Not;

namespace {

// What the numbers in a folder of /proc/PID are, or link to.
std::map<int, std::string> numbersIn(const Daemon& katd, const std::string& folder) {
    std::map<int, std::string> found;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(katd.pid()) + "/" + folder)) {
        std::error_code none;
        found[std::stoi(entry.path().filename())] = std::filesystem::read_symlink(entry.path(), none);
    }
    return found;
}

// The engine's functions that the thread that asked for the URL has called, each followed by a blank.
std::string callsInThreadOf(const Home& home, const std::string& url) {
    std::map<std::string, std::string> callsOf;
    std::string asking;
    std::istringstream trace(readFile(home.tracePath()));
    for (std::string name, thread, rest; trace >> name >> thread && std::getline(trace, rest);) {
        callsOf[thread] += name + " ";
        if (contains(rest, url)) asking = thread;
    }
    return callsOf[asking];
}

TEST(Service, AConnectionIsAttachedToTheEngineAndReturnsWhatItTook) {
    const Home home(Settings{{"log_level", "error"}});
    Daemon katd(home);
    ASSERT_TRUE(katd.waitUntilServing());
    ASSERT_TRUE(Client(home.socketPath()).ask("first.example"));
    const std::string calls =
        "CSDKThread_Attach CSDKMain_ClassifyUrl CSDKUrlCat_GetCategories CSDKUrlCat_GetFlags "
        "CSDKUrlCat_Close CSDKThread_Detach ";
    ASSERT_TRUE(eventually([&] { return callsInThreadOf(home, "first.example") == calls; }))
        << callsInThreadOf(home, "first.example");
    const std::size_t threads = numbersIn(katd, "task").size();  // the first one may still be leaving
    const std::size_t descriptors = numbersIn(katd, "fd").size();
    {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < 50; ++i) {
            clients.push_back(std::make_unique<Client>(home.socketPath()));
            ASSERT_TRUE(clients.back()->ask("ads.example"));
        }
        EXPECT_GE(numbersIn(katd, "task").size(), threads + 49);
    }
    EXPECT_TRUE(eventually([&] {
        return numbersIn(katd, "task").size() <= threads && numbersIn(katd, "fd").size() <= descriptors;
    }));
}

TEST(Service, UsedUpDescriptorsNeverLeaveItWithoutASocket) {
    const Home home;
    Daemon katd(home, {}, {{"ASAPSDK_TRACE", "-"}});  // the cache monitor's thread opens no file
    ASSERT_TRUE(katd.waitUntilServing());
    ASSERT_TRUE(Client(home.socketPath()).ask("ads.example"));
    ASSERT_TRUE(eventually([&] { return contains(home.log(), "fail to read msg length from socket"); }));
    std::map<int, std::string> descriptors = numbersIn(katd, "fd");
    int listener = 4;  // right behind the spare one
    while (descriptors[listener - 1] != "/dev/null" || !contains(descriptors[listener], "socket:"))
        ASSERT_LT(++listener, 1000);
    // No other descriptor than the spare one is left for the new socket. While another process holds the log,
    // the message about the failure waits, but the socket must be there.
    const auto limit = static_cast<rlim_t>(listener);
    const rlimit few{limit, limit + 100};
    struct stat before {};
    ASSERT_EQ(0, stat(home.socketPath().c_str(), &before));
    const int lockFile = holdLog(home);
    ASSERT_EQ(0, prlimit(katd.pid(), RLIMIT_NOFILE, &few, nullptr));
    // The first ones may get what other descriptors are free below the limit.
    const Client clients[] = {Client(home.socketPath()), Client(home.socketPath()),
                              Client(home.socketPath())};
    EXPECT_TRUE(eventually([&] {
        struct stat now {};
        return stat(home.socketPath().c_str(), &now) == 0 && now.st_ino != before.st_ino;
    })) << "the socket is not made again";
    EXPECT_TRUE(eventually([&] { return Client(home.socketPath()).connected(); }));
    close(lockFile);
    const rlimit many{limit + 100, limit + 100};
    ASSERT_EQ(0, prlimit(katd.pid(), RLIMIT_NOFILE, &many, nullptr));
    EXPECT_TRUE(eventually([&] { return Client(home.socketPath()).ask("ads.example").has_value(); }));
    EXPECT_THAT(home.log(), HasSubstr("In startService, accept error. [Too many open files]"));
    EXPECT_THAT(home.log(), Not(HasSubstr("fail to create local socket with [")));
}

TEST(Service, EndsInOrderWhenItsSocketCannotBeMadeAgain) {
    // The engine is closed after a call that returns soon, but not under one that hangs.
    for (const std::string url : {"", "slow.example", "hang.example"}) {
        SCOPED_TRACE(url);
        const Home home(Settings{{"data_conn_string", "run/katd.sock"}, {"ctengine_query_timeout", "0"}});
        home.rules("url hang.example hang\nurl slow.example delay 400 5\n");
        Faults faults(home, "accept4", EPROTO);
        Daemon katd(home, {}, faults.environment({{"ASAPSDK_TRACE", home.tracePath()}}));
        ASSERT_TRUE(eventually([&] { return Client(home / "run/katd.sock").connected(); }));
        Client busy(home / "run/katd.sock");
        ASSERT_TRUE(busy.ask("ads.example"));
        if (!url.empty()) {
            ASSERT_TRUE(busy.send(request("url0" + url)));
            ASSERT_TRUE(eventually([&] { return home.engineCalls("CSDKMain_ClassifyUrl", url) == 1; }));
        }
        std::filesystem::rename(home / "run", home / "old");
        writeFile(home / "run", "in the way of the folder");
        faults.armAll();
        Client last(home / "old/katd.sock");
        EXPECT_EQ(0, katd.waitForExit());
        EXPECT_EQ(url == "hang.example" ? 0 : 1, home.engineCalls("CSDKMain_Close"));
        EXPECT_THAT(home.log(), HasSubstr("In startService, accept error. [Protocol error]"));
        EXPECT_THAT(home.log(),
                    HasSubstr("fail to create local socket with [" + (home / "run/katd.sock") + "][-2]"));
    }
}

}  // namespace
