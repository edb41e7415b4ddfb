// katd while one call of the system fails: each call of a run in turn, for as many functions as matter.
// Whatever fails, katd ends with a status and a message that are meant for it, or it serves on and no client
// gets a wrong answer, and once the fault is past everything is right again.
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
using testing::AnyOf;

namespace {

// Whether something must tell of the failed call. Interrupted calls are repeated, so no client may notice.
enum Telling { NEVER, IF_WRONG, ALWAYS };

struct Fault {
    const char* call;
    int error;  // 0: short
    Telling telling;
    const char* told;  // in the log or on the terminal; null: any failure's message
};

constexpr Fault faults[] = {
    {"open", EMFILE, IF_WRONG, nullptr},
    {"open", EACCES, IF_WRONG, nullptr},
    {"read", EIO, IF_WRONG, nullptr},
    {"read", EINTR, NEVER, nullptr},
    {"read", 0, NEVER, nullptr},
    {"write", EIO, ALWAYS, "Input/output error"},
    {"write", ENOSPC, ALWAYS, "No space left on device"},
    {"write", EINTR, IF_WRONG, "Interrupted system call"},
    {"write", 0, IF_WRONG, "No space left on device"},
    {"close", EIO, IF_WRONG, nullptr},
    {"stat", EACCES, IF_WRONG, nullptr},
    {"fstat", EIO, IF_WRONG, nullptr},
    {"lstat", EACCES, IF_WRONG, nullptr},
    {"access", EACCES, IF_WRONG, nullptr},
    {"rename", EACCES, IF_WRONG, "fail to rename from ["},
    {"unlink", EPERM, IF_WRONG, nullptr},
    {"mkdir", EACCES, IF_WRONG, nullptr},
    {"fcntl", EDEADLK, IF_WRONG, "can't lock "},
    {"fcntl", EINTR, IF_WRONG, "can't lock "},
    {"fcntl", ENOLCK, IF_WRONG, "can't lock "},
    {"ftruncate", EIO, ALWAYS, "can't open "},
    {"fsync", EIO, ALWAYS, "fail to rename from ["},
    {"socket", EMFILE, ALWAYS, "Fail to create loacl socket [Too many open files]"},
    {"bind", EADDRINUSE, ALWAYS, "fail to bind socket fd to ["},
    {"listen", EADDRINUSE, ALWAYS, "fail to listen local socket based on ["},
    {"accept4", EMFILE, ALWAYS, "In startService, accept error. [Too many open files]"},
    {"accept4", ECONNABORTED, ALWAYS, "In startService, accept error. [Software caused connection abort]"},
    {"accept4", EINTR, NEVER, nullptr},
    {"pthread_create", EAGAIN, IF_WRONG, "Error: Fail to create url server instance thread, [11]["},
    {"fopen", EMFILE, ALWAYS, nullptr},
    {"fgets", EIO, IF_WRONG, nullptr},
    {"fread", EIO, IF_WRONG, nullptr},
    {"fwrite", ENOSPC, ALWAYS, "ASAPSDK::CSDKMain_SaveWebSecCache Failed : Type=3, Code=28"},
#ifdef FAULT_MALLOC
    {"malloc", ENOMEM, IF_WRONG, nullptr},
#endif
};

// How katd may end: its status, and what it says.
constexpr struct {
    int status;
    const char* text;
} endings[] = {
    {255, "bad environment variable [KATD_DIR="},
    {255, "fail to open config file ["},
    {255, "fail to load katd config file."},
    {255, "fail to new UrlServer"},
    {255, "urlServer is not valid"},
    {1, "can't open "},
    {1, "can't lock "},
    {1, "Cannot get correct dns, katd returned."},
    {1, "heck Net Status Fail, katd exits !"},
    {1, "katd: not enough memory to start"},
    {0, "fail to create local socket with ["},
};

// What tells of a failure, and never occurs without one.
constexpr const char* failureMessages[] = {
    "fail to open ",
    "fail to read [",
    "fail to read msg from socket",
    "_list_path from config file",
    "malformed url list file",
    "fail to load u",
    "fail to load domains",
    "fail to reload ",
    "fail to allocate memory",
    "accept error",
    "Error: Fail to create",
    "fail to create",
    "fail to rename",
    "fail to do strdup",
    "fail to new char",
    "fail to send",
    "fail to call strdup",
    "Failed : Type=",
    "Failed: Type=",
    "connection is closed[",
    "setDebugLogPath fail",
    "does not exist",
    "does not a file",
    "Out of memory",
    "asapsdk: no rules",
    "asapsdk: trace",
};

bool tellsOfFailure(const std::string& text) {
    return std::any_of(std::begin(failureMessages), std::end(failureMessages),
                       [&](const char* message) { return contains(text, message); });
}

// A cache file of the engine that knows one URL.
const std::string& oldCache() {
    static const std::string text = [] {
        const TempDir dir;
        writeFile(dir / "rules", "url old.example 7\n");
        setenv("ASAPSDK_RULES", (dir / "rules").c_str(), 1);
        void* engine = CSDKMain_Create("WebSecCacheMaxEntries=10");
        CSDKUrlCat_Close(CSDKMain_ClassifyUrl(engine, "old.example"));
        EXPECT_EQ(0, CSDKMain_SaveWebSecCache(engine, (dir / "cache").c_str()));
        CSDKMain_Close(engine);
        unsetenv("ASAPSDK_RULES");
        return readFile(dir / "cache");
    }();
    return text;
}

enum Outcome { ENDED, REPORTED, UNNOTICED };

// One katd with one call that fails, from its start through a bit of everything to its end.
class FaultyRun {
public:
    using Descriptors = std::multiset<std::string>;

    // number 0: no call fails. held: what katd holds in the end when nothing fails, null when not known.
    FaultyRun(const Fault& fault, std::uint32_t number, const Descriptors* held)
        : fault_(fault),
          home_({{"size_limit", "1"},
                 {"rotation_number", std::to_string(ROTATED)},
                 {"save_cache_time", "03:30"},
                 {"data_conn_string", "run/katd.sock"},
                 {"ctengine_query_timeout", "2000"}}),
          socketPath_(home_ / "run/katd.sock"),
          faults_(home_, fault.call, fault.error) {
        home_.rules(
            "host forum.example 5,44\nhost new.example unknown then 9\nhost dead.example final\n"
            "host www.example.com 1\n");
        std::filesystem::remove(home_ / "log");  // katd makes it
        writeFile(home_ / "data/cache", oldCache());
        faults_.arm(number, number);
        Daemon::Environment environment = faults_.environment();
        // For lack of memory katd may find no network, and waits before it says so.
        if (fault.call == std::string("malloc"))
            environment = faults_.environment({{"LD_PRELOAD", FAST_CLOCK}, {"FAST_CLOCK_FACTOR", "100"}});
        Daemon katd(home_, {}, environment);
        katd_ = &katd;
        if (connect()) {
            useEverything();
            if (katd.isRunning()) judgeWhatIsHeld(held);
        }
        const int status = katd.isRunning() ? Daemon::STILL_RUNNING : katd.waitForExit();
        katd.kill(SIGKILL);
        judge(status);
    }

    Outcome outcome() const { return outcome_; }
    std::uint32_t calls() const { return faults_.calls(); }
    bool hit() const { return faults_.failed() > 0; }
    const Descriptors& held() const { return held_; }

private:
    bool connect() {
        return eventually([&] {
                   client_ = std::make_unique<Client>(socketPath_);
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

    // A request whose answer is known. What the fault may do to it: close the connection, or leave the URL
    // unknown; not before it, and not when it is past.
    void ask(const std::string& message, const std::vector<unsigned>& categories, int matched,
             const std::vector<unsigned>& orElse = {}) {
        const std::optional<Reply> reply = exchange(message);
        if (reply && reply->categories == categories && reply->header.matched == matched) return;
        const bool isPast = mended_;
        wentWrong_ = true;
        EXPECT_TRUE(hit() && !isPast) << message.substr(0, 40);
        if (!reply) return;
        if (reply->header.matched == 0) {
            EXPECT_TRUE(reply->categories.empty());
        } else {
            EXPECT_EQ(orElse, reply->categories) << message.substr(0, 40);
        }
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
        const bool isPast = hit();
        control("assis_reload");
        mended_ = isPast && !contains(said(), "_list_path from config file");
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

    void judgeWhatIsHeld(const Descriptors* held) {
        const auto tooMuch = [&] {
            held_ = descriptorsOf(*katd_, home_);
            Descriptors more;
            if (held == nullptr) return more;
            std::set_difference(held_.begin(), held_.end(), held->begin(), held->end(),
                                std::inserter(more, more.end()));
            // The live file of the log is open or not.
            if (held->count("/log/") == 0 && more.count("/log/") == 1) more.erase("/log/");
            return more;
        };
        eventually([&] { return threadsOf(*katd_) <= IDLE_THREADS && tooMuch().empty(); });
        EXPECT_LE(threadsOf(*katd_), IDLE_THREADS);
        EXPECT_THAT(tooMuch(), testing::IsEmpty());
        EXPECT_EQ(std::to_string(katd_->pid()) + "\n" + '\0', readFile(home_ / "data/katd.pid"));
    }

    // All that katd wrote to its log, wherever that came to lie, and to the terminal.
    std::string said() const {
        return wholeLog(home_.logPath(), ROTATED) + wholeLog(home_ / "log/katd.log", ROTATED) +
               katd_->output();
    }

    // status STILL_RUNNING: it served.
    void judge(int status) {
        const std::string text = said();
        const bool isTold = fault_.told != nullptr ? contains(text, fault_.told) : tellsOfFailure(text);
        if (status != Daemon::STILL_RUNNING) {
            outcome_ = ENDED;
            const auto fits = [&](const auto& ending) {
                return ending.status == status && contains(text, ending.text);
            };
            EXPECT_TRUE(std::any_of(std::begin(endings), std::end(endings), fits)) << "status " << status;
            EXPECT_TRUE(hit());
            EXPECT_NE(NEVER, fault_.telling);
        } else {
            outcome_ = isTold ? REPORTED : UNNOTICED;
            EXPECT_TRUE(hit() || !tellsOfFailure(text));
            judgeNotes(text);
        }
        if (hit()) {
            EXPECT_TRUE(isTold || (!wentWrong_ && fault_.telling != ALWAYS)) << "nothing tells of the fault";
            EXPECT_FALSE(isTold && fault_.telling == NEVER);
            EXPECT_FALSE(wentWrong_ && (fault_.error == EINTR || fault_.error == 0));
        }
        judgeCache(text, status);
        if (testing::Test::HasFailure() && !isShown_) {
            isShown_ = true;
            std::cout << text << std::endl;
        }
    }

    // No more than one message is lost, and that to the fault: a file of the log holds more than one.
    void judgeNotes(const std::string& text) const {
        // Two settings that cannot be read have defaults: then less is kept, or elsewhere.
        if (fault_.call == std::string("fgets") || fault_.call == std::string("fopen")) return;
        std::vector<int> lost;
        for (int i = 1; i <= notes_; ++i) {
            if (!contains(text, "Unknown ctrl request [message " + std::to_string(i) + ".]"))
                lost.push_back(i);
        }
        EXPECT_LE(lost.size(), hit() ? 1u : 0u) << testing::PrintToString(lost);
    }

    void judgeCache(const std::string& text, int status) const {
        const std::string path = home_ / "data/cache";
        ASSERT_TRUE(isWholeCache(path)) << readFile(path);
        if (!contains(text, "does not exist") && !contains(text, "LoadWebSecCache Failed") &&
            !contains(text, "does not a file")) {
            EXPECT_EQ(std::vector<unsigned>{7}, cachedCategories(path, "old.example"));
        }
        if (status == Daemon::STILL_RUNNING && isSaved_ && !contains(text, "SaveWebSecCache Failed") &&
            !contains(text, "fail to rename")) {
            EXPECT_EQ((std::vector<unsigned>{5, 44}), cachedCategories(path, "forum.example/"));
        }
    }

    static constexpr int ROTATED = 100;  // all of the log stays
    static inline bool isShown_ = false;

    const Fault& fault_;
    const Home home_;
    const std::string socketPath_;
    Faults faults_;
    Daemon* katd_ = nullptr;
    std::unique_ptr<Client> client_;
    Descriptors held_;
    int notes_ = 0;
    bool wentWrong_ = false;  // for a client
    bool isSaved_ = false;    // the cache, unless something is told
    bool mended_ = false;
    Outcome outcome_ = UNNOTICED;
};

class Table : public testing::Environment {
public:
    struct Row {
        std::string fault;
        std::uint32_t calls;
        int outcomes[3];
    };
    static inline std::vector<Row> rows;

    void TearDown() override {
        if (rows.empty()) return;
        std::cout << "fault                     calls   runs  ended  reported  unnoticed\n";
        for (const Row& row : rows) {
            std::cout << std::left << std::setw(24) << row.fault << std::right << std::setw(7) << row.calls
                      << std::setw(7)
                      << row.outcomes[ENDED] + row.outcomes[REPORTED] + row.outcomes[UNNOTICED]
                      << std::setw(7) << row.outcomes[ENDED] << std::setw(10) << row.outcomes[REPORTED]
                      << std::setw(11) << row.outcomes[UNNOTICED] << '\n';
        }
        std::cout << std::flush;
    }
};
const auto* const table = testing::AddGlobalTestEnvironment(new Table);

std::string nameOf(const Fault& fault) {
    return std::string(fault.call) + "_" + (fault.error == 0 ? "short" : strerrorname_np(fault.error));
}

void PrintTo(const Fault& fault, std::ostream* out) {
    *out << nameOf(fault);
}

class OneFault : public testing::TestWithParam<Fault> {};

TEST_P(OneFault, EndsAsMeantOrServesOn) {
    const Fault& fault = GetParam();
    const FaultyRun undisturbed(fault, 0, nullptr);
    ASSERT_FALSE(HasFailure()) << "without a fault";
    ASSERT_GT(undisturbed.calls(), 0u) << "the function is never reached";
    Table::Row row{nameOf(fault), undisturbed.calls(), {}};
    constexpr std::uint32_t SHORT_RUNS = 6;
    const std::uint32_t runs = std::min(undisturbed.calls(), SHORT_RUNS);
    const std::uint32_t shift = static_cast<std::uint32_t>(std::hash<std::string>()(row.fault));
    for (std::uint32_t i = 0;; ++i) {
        std::uint32_t number = i + 1;
        if (!isLongRun()) {
            if (i == runs) break;
            const std::uint32_t stride = undisturbed.calls() / runs;
            number += i * (stride - 1) + shift % stride;
        }
        SCOPED_TRACE(row.fault + ", call " + std::to_string(number));
        const FaultyRun run(fault, number, &undisturbed.held());
        if (!run.hit()) break;  // behind the last one
        ++row.outcomes[run.outcome()];
        if (HasFatalFailure()) break;
    }
    Table::rows.push_back(row);
    EXPECT_GT(row.outcomes[ENDED] + row.outcomes[REPORTED] + row.outcomes[UNNOTICED], 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, OneFault, testing::ValuesIn(faults),
                         [](const testing::TestParamInfo<Fault>& param) { return nameOf(param.param); });

}  // namespace
