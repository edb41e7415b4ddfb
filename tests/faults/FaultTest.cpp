// katd while one system call fails, each call of a run in turn, for every function and error of the table
// below. Whatever fails, katd either ends with a status and a message of the tables, or it serves on, no
// client gets a wrong answer, and once the fault has passed everything is right again.
//
// Without KATD_TESTS_LONG only a few calls of each function are tried, spread over the run.
#include <sys/time.h>

#include <cstring>
#include <iostream>

#include "faults/Faults.h"
#include "faults/Inspect.h"
#include "support/Client.h"

using namespace katd_test;

namespace {

constexpr int SHORT = 0;  // in place of an error: one half is read or written

enum Reported { NEVER, IF_WRONG, ALWAYS };

// Calls of a function that fail with each of the errors, and whether katd reports that, in its log or on the
// terminal: never (no client may notice either), if a client noticed, or always. The text is what it reports,
// by default any of the messages below.
struct Fault {
    std::string call;
    Reported reported;
    std::vector<int> errors;
    std::string text = {};
};
void PrintTo(const Fault& fault, std::ostream* out) {
    *out << fault.call << " " << fault.errors[0];
}
// clang-format off
const Fault faultTable[] = {
    {"open", IF_WRONG, {EMFILE, EACCES}}, {"close", IF_WRONG, {EIO}}, {"access", IF_WRONG, {EACCES}},
    {"stat", IF_WRONG, {EACCES}}, {"fstat", IF_WRONG, {EIO}}, {"lstat", IF_WRONG, {EACCES}},
    {"unlink", IF_WRONG, {EPERM}}, {"mkdir", IF_WRONG, {EACCES}}, {"rename", IF_WRONG, {EACCES}, "fail to rename from ["},
    {"read", IF_WRONG, {EIO}}, {"read", NEVER, {EINTR, SHORT}},
    {"write", ALWAYS, {EIO}, "Input/output error"}, {"write", ALWAYS, {ENOSPC}, "No space left on device"},
    {"write", IF_WRONG, {EINTR}, "Interrupted system call"}, {"write", IF_WRONG, {SHORT}, "No space left on device"},
    {"fcntl", IF_WRONG, {EDEADLK, EINTR, ENOLCK}, "can't lock "},
    {"ftruncate", ALWAYS, {EIO}, "can't open "}, {"fsync", ALWAYS, {EIO}, "fail to rename from ["},
    {"socket", ALWAYS, {EMFILE}, "Fail to create loacl socket [Too many open files]"},
    {"bind", ALWAYS, {EADDRINUSE}, "fail to bind socket fd to ["},
    {"listen", ALWAYS, {EADDRINUSE}, "fail to listen local socket based on ["},
    {"accept4", ALWAYS, {EMFILE}, "In startService, accept error. [Too many open files]"},
    {"accept4", ALWAYS, {ECONNABORTED}, "In startService, accept error. [Software caused connection abort]"},
    {"accept4", NEVER, {EINTR}},
    {"pthread_create", IF_WRONG, {EAGAIN}, "Error: Fail to create url server instance thread, [11]["},
    {"fopen", ALWAYS, {EMFILE}}, {"fgets", IF_WRONG, {EIO}}, {"fread", IF_WRONG, {EIO}},
    {"fwrite", ALWAYS, {ENOSPC}, "ASAPSDK::CSDKMain_SaveWebSecCache Failed : Type=3, Code=28"},
#ifdef FAULT_MALLOC
    {"malloc", IF_WRONG, {ENOMEM}},
#endif
};

// How katd may end, and what it reports then.
const std::pair<int, const char*> endings[] = {
    {255, "bad environment variable [KATD_DIR="}, {255, "fail to open config file ["},
    {255, "fail to load katd config file."}, {255, "fail to new UrlServer"}, {255, "urlServer is not valid"},
    {1, "can't open "}, {1, "can't lock "}, {1, "Cannot get correct dns, katd returned."},
    {1, "heck Net Status Fail, katd exits !"}, {1, "katd: not enough memory to start"},
    {0, "fail to create local socket with ["}};

// What reports a failure and never occurs without one.
const char* const messages[] = {
    "fail to open ", "fail to read [", "fail to read msg from socket", "_list_path from config file",
    "malformed url list file", "fail to load u", "fail to load domains", "fail to reload ", "fail to allocate memory",
    "accept error", "Error: Fail to create", "fail to create", "fail to rename", "fail to do strdup", "fail to new char",
    "fail to send", "fail to call strdup", "Failed : Type=", "Failed: Type=", "connection is closed[",
    "setDebugLogPath fail", "does not exist", "does not a file", "Out of memory", "asapsdk: no rules", "asapsdk: trace"};
// clang-format on

std::string nameOf(int error) {
    return error == SHORT ? "short" : strerrorname_np(error);
}

// One for each error.
std::vector<Fault> eachFault() {
    std::vector<Fault> result;
    for (const Fault& fault : faultTable)
        for (const int error : fault.errors)
            result.push_back({fault.call, fault.reported, {error}, fault.text});
    return result;
}

bool reportsFailure(const std::string& output) {
    return std::any_of(std::begin(messages), std::end(messages),
                       [&](const char* message) { return contains(output, message); });
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
          faults_(home_, fault.call, fault.errors[0]) {
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
            const auto fits = [&](const auto& end) {
                return end.first == status && contains(text, end.second);
            };
            EXPECT_TRUE(std::any_of(std::begin(endings), std::end(endings), fits)) << "status " << status;
            EXPECT_TRUE(hit());
            EXPECT_NE(NEVER, fault_.reported);
        } else {
            EXPECT_TRUE(hit() || !reportsFailure(text));
            judgeNotes(text);
        }
        if (hit()) {
            EXPECT_TRUE(isReported || (!wentWrong_ && fault_.reported != ALWAYS))
                << "the fault is not reported";
            EXPECT_FALSE(isReported && fault_.reported == NEVER);
            EXPECT_FALSE(wentWrong_ && (fault_.errors[0] == EINTR || fault_.errors[0] == SHORT));
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
            EXPECT_EQ("7", *old);
        }
        if (status == Daemon::STILL_RUNNING && isSaved_ && !says("SaveWebSecCache Failed") &&
            !says("fail to rename")) {
            EXPECT_EQ("5,44", cachedCategories(path, "forum.example/"));
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
    const auto shift =
        static_cast<std::uint32_t>(std::hash<std::string>()(fault.call + nameOf(fault.errors[0])));
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

INSTANTIATE_TEST_SUITE_P(Faults, OneFault, testing::ValuesIn(eachFault()), [](const auto& param) {
    return param.param.call + "_" + nameOf(param.param.errors[0]);
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
        EXPECT_EQ("5", cachedCategories(cache, "first.example"));
        EXPECT_EQ(full == "write" ? "6" : "unknown", cachedCategories(cache, "second.example"));
        faults.disarm();
        ASSERT_TRUE(learnAndSave("third.example", 7));
        EXPECT_TRUE(client.control("space again"));
        EXPECT_THAT(home.log(), testing::HasSubstr("\tdebug\tUnknown ctrl request [space again]\n"));
        EXPECT_EQ("7", cachedCategories(cache, "third.example"));
    }
}

}  // namespace
