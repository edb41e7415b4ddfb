// katd while one system call fails, each call of a run in turn, for every function and error of faults.txt.
// Whatever fails, katd either ends with a status and a message of faults.txt, or it serves on, no client gets
// a wrong answer, and once the fault has passed everything is right again.
//
// Without KATD_TESTS_LONG only a few calls of each function are tried, spread over the run.
#include <gmock/gmock.h>
#include <sys/time.h>

#include <cstring>
#include <iomanip>
#include <iostream>

#include "faults/Faults.h"
#include "faults/Inspect.h"
#include "support/Client.h"

using namespace katd_test;

namespace {

struct Fault {
    std::string call;
    int error;             // 0: short
    std::string reported;  // never, if_wrong or always
    std::string text;
};
void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.call << " " << fault.error; }
struct Ending {
    int status;
    std::string text;
};
struct Table {
    std::vector<Fault> faults;
    std::vector<Ending> endings;
    std::vector<std::string> messages;
};

std::string nameOf(int error) {
    const char* const name = error == 0 ? "short" : strerrorname_np(error);
    return name == nullptr ? "" : name;  // some numbers have none
}

const Table& table() {
    static const Table table = [] {
        Table read;
        std::istringstream file(readFile(FAULT_TABLE));
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string kind, errors, text;
            int status = 0;
            Fault fault{"", 0, "", ""};
            words >> kind;
            if (kind == "end") words >> status;
            if (kind == "fault") words >> fault.call >> fault.reported >> errors >> std::quoted(fault.text);
#ifndef FAULT_MALLOC
            if (fault.call == "malloc") continue;
#endif
            std::istringstream names(errors);
            for (std::string name; std::getline(names, name, ','); read.faults.push_back(fault)) {
                for (fault.error = 0; name != nameOf(fault.error);)
                    ++fault.error;
            }
            while (words >> std::quoted(text)) {
                if (kind == "end") read.endings.push_back({status, text});
                if (kind == "message") read.messages.push_back(text);
            }
        }
        return read;
    }();
    return table;
}

bool reportsFailure(const std::string& output) {
    const auto& messages = table().messages;
    return std::any_of(messages.begin(), messages.end(),
                       [&](const std::string& message) { return contains(output, message); });
}

// A cache file of the stand-in engine.
constexpr char oldCache[] = "asapsdk-cache 1 1 474048131f48982b\n7 old.example\n";

// One katd with one call that fails, from its start through a bit of everything to its end.
class FaultyRun {
public:
    using Descriptors = std::multiset<std::string>;

    // number 0: no call fails. allowed: what such a run held in the end; null for that run itself.
    FaultyRun(const Fault& fault, std::uint32_t number, const Descriptors* allowed)
        : fault_(fault),
          home_({{"size_limit", "1"},
                 {"rotation_number", std::to_string(ROTATED)},
                 {"save_cache_time", "03:30"},
                 {"data_conn_string", "run/katd.sock"},
                 {"ctengine_query_timeout", "2000"}}),
          faults_(home_, fault.call, fault.error) {
        home_.rules(
            "host forum.example 5,44\nhost new.example unknown then 9\nhost dead.example final\n"
            "host www.example.com 1\n");
        std::filesystem::remove(home_ / "log");  // katd creates it
        writeFile(home_ / "data/cache", oldCache);
        faults_.arm(number, number);
        // For lack of memory katd may find no network: then it waits before it reports that.
        Daemon katd(
            home_, {},
            faults_.environment(fault.call == "malloc" ? Daemon::Environment{{"LD_PRELOAD", FAST_CLOCK}}
                                                       : Daemon::Environment()));
        katd_ = &katd;
        if (connect()) {
            useEverything();
            if (katd.isRunning()) judgeWhatIsHeld(allowed);
        }
        const int status = katd.isRunning() ? Daemon::STILL_RUNNING : katd.waitForExit();
        katd.kill(SIGKILL);
        judge(status);
    }

    std::uint32_t calls() const { return faults_.calls(); }
    bool hit() const { return faults_.failed() > 0; }
    const Descriptors& held() const { return held_; }

private:
    bool connect() {
        return eventually([&] {
                   client_ = std::make_unique<Client>(home_ / "run/katd.sock");
                   return client_->connected() || !katd_->isRunning();
               }) &&
               client_->connected();
    }

    std::optional<Reply> exchange(const std::string& message) {
        if (!client_->connected() && !connect()) return std::nullopt;
        const timeval limit{30, 0};
        setsockopt(client_->fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        errno = 0;
        const std::optional<Reply> reply = client_->exchange(message);
        EXPECT_NE(EAGAIN, errno) << "no reply to " << message.substr(0, 40);
        if (!reply) client_->hangUp();
        return reply;
    }

    // A request with a known answer. The fault may close its connection or leave the URL unknown.
    void ask(const std::string& message, const std::vector<unsigned>& categories, int matched,
             const std::vector<unsigned>& orElse = {}) {
        const std::optional<Reply> reply = exchange(message);
        if (reply && reply->categories == categories && reply->header.matched == matched) return;
        wentWrong_ = true;
        EXPECT_TRUE(hit() && !mended_) << message.substr(0, 40);
        if (!reply) return;
        EXPECT_EQ(reply->header.matched == 0 ? std::vector<unsigned>() : orElse, reply->categories)
            << message.substr(0, 40);
    }
    void control(const std::string& body) { ask("ctl:" + body, {}, 0); }
    // Leaves a numbered message in the log.
    void note() { control("message " + std::to_string(++notes_) + "."); }

    void useEverything() {
        control("log_level=" + number(3));
        note();
        ask("url0http://ads.example/banner.gif", {12}, 1);
        ask("url1shop.example/tools/saw", {5}, 1);
        note();
        ask("url0forum.example/", {5, 44}, 1);
        ask("url1new.example", {9}, 1);
        ask("url0old.example", {7}, 1);
        ask("url0dead.example", {}, 1);
        note();
        client_->hangUp();
        ask("url0ads.example/" + std::string(5000, 'x'), {12}, 1);
        control("timeout=" + number(2) + number(1));
        control("urls_stat");
        note();
        control("save_cache");
        note();
        writeFile(home_ / "domains.list", listFile({"013|ads.example", "034|news.example"}));
        control("assis_reload");
        ask("url0ads.example", {13}, 1, {12});
        for (int i = 0; i < 5; ++i)
            note();
        // Nothing fails any more: a reload mends what the fault left.
        const bool hasPassed = hit();
        control("assis_reload");
        mended_ = hasPassed && !contains(output(), "_list_path from config file");
        client_->hangUp();
        ask("url0ads.example", {13}, 1, {12});
        ask("url1shop.example/tools/saw", {5}, 1);
        ask("url0forum.example/", {5, 44}, 1);
        ask("url0dead.example", {}, 1);
        control("save_cache");
        isSaved_ = mended_ || !wentWrong_;
        note();
        client_->hangUp();
    }

    void judgeWhatIsHeld(const Descriptors* allowed) {
        // main, the cache monitor, the watchdog; and the thread that ThreadSanitizer starts.
#ifdef __SANITIZE_THREAD__
        constexpr std::size_t idleThreads = 4;
#else
        constexpr std::size_t idleThreads = 3;
#endif
        const auto excess = [&] {
            held_ = descriptorsOf(katd_->pid(), home_);
            Descriptors more;
            if (allowed == nullptr) return more;
            std::set_difference(held_.begin(), held_.end(), allowed->begin(), allowed->end(),
                                std::inserter(more, more.end()));
            // The log's live file is open or not.
            if (allowed->count("/log/") == 0 && more.count("/log/") == 1) more.erase("/log/");
            return more;
        };
        eventually([&] { return threadsOf(katd_->pid()) <= idleThreads && excess().empty(); });
        EXPECT_LE(threadsOf(katd_->pid()), idleThreads);
        EXPECT_THAT(excess(), testing::IsEmpty());
        const std::string pidFile = home_ / "data/katd.pid";
        if (!contains(output(), "can't open " + pidFile)) {
            EXPECT_EQ(std::to_string(katd_->pid()) + "\n" + '\0', readFile(pidFile));
        }
    }

    // All that katd wrote to its log, wherever the fault put it, and to the terminal.
    std::string output() const {
        return wholeLog(home_.logPath(), ROTATED) + wholeLog(home_ / "log/katd.log", ROTATED) +
               katd_->output();
    }

    // status STILL_RUNNING: it served.
    void judge(int status) {
        const std::string text = output();
        const bool isReported = fault_.text.empty() ? reportsFailure(text) : contains(text, fault_.text);
        if (status != Daemon::STILL_RUNNING) {
            const auto fits = [&](const Ending& end) {
                return end.status == status && contains(text, end.text);
            };
            EXPECT_TRUE(std::any_of(table().endings.begin(), table().endings.end(), fits))
                << "status " << status;
            EXPECT_TRUE(hit());
            EXPECT_NE("never", fault_.reported);
        } else {
            EXPECT_TRUE(hit() || !reportsFailure(text));
            judgeNotes(text);
        }
        if (hit()) {
            EXPECT_TRUE(isReported || (!wentWrong_ && fault_.reported != "always"))
                << "the fault is not reported";
            EXPECT_FALSE(isReported && fault_.reported == "never");
            EXPECT_FALSE(wentWrong_ && (fault_.error == EINTR || fault_.error == 0));
        }
        judgeCache(text, status);
        if (testing::Test::HasFailure() && !std::exchange(isShown_, true)) std::cout << text << std::endl;
    }

    // At most one message is lost, and only to the fault: a file of the log holds more than one.
    void judgeNotes(const std::string& text) const {
        // Without their settings fewer files are kept, or elsewhere.
        if (fault_.call == "fgets" || fault_.call == "fopen") return;
        std::vector<int> lost;
        for (int i = 1; i <= notes_; ++i) {
            if (!contains(text, "Unknown ctrl request [message " + std::to_string(i) + ".]"))
                lost.push_back(i);
        }
        EXPECT_LE(lost.size(), hit() ? 1u : 0u) << testing::PrintToString(lost);
    }

    void judgeCache(const std::string& text, int status) const {
        const std::string path = home_ / "data/cache";
        const auto says = [&](const char* part) { return contains(text, part); };
        const auto old = cachedCategories(path, "old.example");
        ASSERT_TRUE(old) << readFile(path);
        if (!says("does not exist") && !says("LoadWebSecCache Failed") && !says("does not a file")) {
            EXPECT_EQ(std::vector<unsigned>{7}, *old);
        }
        if (status == Daemon::STILL_RUNNING && isSaved_ && !says("SaveWebSecCache Failed") &&
            !says("fail to rename")) {
            EXPECT_EQ((std::vector<unsigned>{5, 44}), cachedCategories(path, "forum.example/"));
        }
    }

    static constexpr int ROTATED = 100;  // all of the log stays
    static inline bool isShown_ = false;

    const Fault& fault_;
    const Home home_;
    Faults faults_;
    Daemon* katd_ = nullptr;
    std::unique_ptr<Client> client_;
    Descriptors held_;
    int notes_ = 0;
    bool wentWrong_ = false;  // for a client
    bool mended_ = false;
    bool isSaved_ = false;  // the cache, unless a failure is reported
};

class OneFault : public testing::TestWithParam<Fault> {};

TEST_P(OneFault, EndsAsMeantOrServesOn) {
    const Fault& fault = GetParam();
    const FaultyRun undisturbed(fault, 0, nullptr);
    ASSERT_FALSE(HasFailure()) << "without a fault";
    ASSERT_GT(undisturbed.calls(), 0u) << "the function is never reached";
    constexpr std::uint32_t shortRuns = 6;
    const std::uint32_t stride = isLongRun() ? 1 : std::max(undisturbed.calls() / shortRuns, 1U);
    const auto shift = static_cast<std::uint32_t>(std::hash<std::string>()(fault.call + nameOf(fault.error)));
    std::uint32_t hits = 0;
    for (std::uint32_t call = 1 + shift % stride; isLongRun() || call <= shortRuns * stride; call += stride) {
        SCOPED_TRACE("call " + std::to_string(call));
        const FaultyRun run(fault, call, &undisturbed.held());
        if (!run.hit()) break;  // beyond the last one
        ++hits;
        if (HasFatalFailure()) break;
    }
    EXPECT_GT(hits, 0u);
}

INSTANTIATE_TEST_SUITE_P(Faults, OneFault, testing::ValuesIn(table().faults), [](const auto& param) {
    return param.param.call + "_" + nameOf(param.param.error);
});

// The one test of a disk that stays full.
TEST(FullDisk, StopsNothingAndIsOverWhenThereIsSpaceAgain) {
    // The log's, the cache's, both, and the cache's at the last moment.
    for (const std::string full : {"write", "fwrite", "write,fwrite", "fsync"}) {
        SCOPED_TRACE(full);
        const Home home;
        const std::string cache = home / "data/cache";
        home.rules("host first.example 5\nhost second.example 6\nhost third.example 7\n");
        Faults faults(home, full, ENOSPC);
        Daemon katd(home, {}, faults.environment());
        ASSERT_TRUE(katd.waitUntilServing());
        Client client(home.socketPath());
        const auto learnAndSave = [&](const std::string& url, unsigned category) {
            const auto reply = client.ask(url);
            return reply && reply->categories == std::vector{category} && client.control("save_cache");
        };
        ASSERT_TRUE(learnAndSave("first.example", 5));
        faults.armAll();
        const unsigned rounds = isLongRun() ? 2000 : 20;
        for (unsigned i = 0; i < rounds; ++i)
            ASSERT_TRUE(learnAndSave("second.example", 6));
        EXPECT_GE(faults.failed(), rounds);
        EXPECT_EQ(full[0] == 'w', contains(katd.output(), "No space left on device\n"));
        EXPECT_EQ(full == "fwrite", contains(home.log(), "SaveWebSecCache Failed : Type=3, Code=28"));
        EXPECT_EQ(std::vector{5U}, cachedCategories(cache, "first.example"));
        EXPECT_EQ(full == "write" ? std::vector{6U} : std::vector<unsigned>(),
                  cachedCategories(cache, "second.example"));
        faults.disarm();
        ASSERT_TRUE(learnAndSave("third.example", 7));
        EXPECT_TRUE(client.control("space again"));
        EXPECT_THAT(home.log(), testing::HasSubstr("\tdebug\tUnknown ctrl request [space again]\n"));
        EXPECT_EQ(std::vector{7U}, cachedCategories(cache, "third.example"));
    }
}

}  // namespace
