// Runs the real katd under load from well-behaved and other clients for a given time, and checks every
// answer, every record of the log, and what katd still holds at the end. Status 0 when all was right.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <thread>

#include "Findings.h"
#include "Load.h"
#include "LogFiles.h"
#include "support/Daemon.h"

using namespace katd_test;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

namespace {

// Sanitizers keep freed memory.
constexpr bool MEMORY_TELLS = std::string_view(KATD_SANITIZERS).empty();
constexpr long GROWTH_LIMIT_KB = 1024;
constexpr int ROTATED_FILES = 100;

// What katd holds at a moment.
struct Usage {
    long threads = 0;
    long descriptors = 0;  // without the log's, which is open at times
    long memoryKb = 0;     // resident

    bool sameHandles(const Usage& other) const {
        return threads == other.threads && descriptors == other.descriptors;
    }
};

Usage usageOf(pid_t pid, const std::string& logName) {
    Usage usage;
    const std::string folder = "/proc/" + std::to_string(pid);
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd", gone))
        usage.descriptors += std::filesystem::read_symlink(entry.path(), gone).filename() != logName;
    std::istringstream status(readFile(folder + "/status"));
    for (std::string line; std::getline(status, line);) {
        std::sscanf(line.c_str(), "Threads: %ld", &usage.threads);
        std::sscanf(line.c_str(), "VmRSS: %ld", &usage.memoryKb);
    }
    return usage;
}

class Soak {
public:
    explicit Soak(double seconds) : seconds_(seconds) {
        sigemptyset(&endSignals_);
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&endSignals_, number);
        pthread_sigmask(SIG_BLOCK, &endSignals_, nullptr);
        signal(SIGINT, SIG_DFL);
    }

    int run() {
        if (!katd_->waitUntilServing()) return 1;
        const std::string firstOutput = katd_->output();
        std::atomic<bool> stop{false};
        std::thread collector([&] {
            for (; !stop; usleep(50000))
                log_.collect();
        });
        const Usage before = settled();
        // Afterwards, what is allocated once or grows up to a limit has been allocated.
        loadUntil(seconds_ / 3);
        const Usage warm = settled();
        loadUntil(seconds_);
        const Usage end = settled();
        stop = true;
        collector.join();
        judgeEnd(before, warm, end, firstOutput);
        if (!findings_.any() && !interrupted_) killOften();
        return summary(warm, end);
    }

private:
    double elapsed() const { return Seconds(Clock::now() - start_).count(); }

    // What katd holds once that has stopped changing, with all clients gone.
    Usage settled() {
        Usage usage = usageOf(katd_->pid(), home_.logName());
        int same = 0;
        for (int i = 0; same < 10 && i < 600 && katd_->isRunning(); ++i) {
            usleep(50000);
            const Usage now = usageOf(katd_->pid(), home_.logName());
            same = now.sameHandles(usage) ? same + 1 : 0;
            usage = now;
        }
        return usage;
    }

    void loadUntil(double end) {
        load_.start();
        while (elapsed() < end && !interrupted_ && !findings_.any() && katd_->isRunning()) {
            const timespec moment{0, 100 * 1000 * 1000};
            interrupted_ = sigtimedwait(&endSignals_, nullptr, &moment) > 0;
            if (elapsed() >= nextLine_) progress();
        }
        load_.stop();
    }

    void progress() {
        const Usage usage = usageOf(katd_->pid(), home_.logName());
        const double now = elapsed();
        const std::uint64_t answers = load_.answers;
        std::printf(
            "%6.0f s %10llu requests %7.0f answers/s %4ld threads %4ld descriptors %6ld kB %5u rotations\n",
            now, static_cast<unsigned long long>(load_.requests),
            static_cast<double>(answers - lastAnswers_) / (now - lastLine_), usage.threads, usage.descriptors,
            usage.memoryKb, log_.rotations());
        std::fflush(stdout);
        lastLine_ = now;
        lastAnswers_ = answers;
        nextLine_ = now + (seconds_ < 30 ? 2 : 5);
    }

    void judgeEnd(const Usage& before, const Usage& warm, const Usage& end, const std::string& firstOutput) {
        if (katd_->output() != firstOutput)
            findings_.add("katd wrote to standard output or error: " +
                          katd_->output().substr(firstOutput.size()));
        if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed())
            findings_.add("the soak itself failed, see above");
        if (findings_.any() || !katd_->isRunning()) return;
        if (!before.sameHandles(warm) || !warm.sameHandles(end))
            findings_.add("threads or descriptors have grown");
        if (MEMORY_TELLS && end.memoryKb > warm.memoryKb + GROWTH_LIMIT_KB) findings_.add("memory has grown");
        Client(home_.socketPath()).control("urls_stat");
        settled();
        log_.finish(load_.markersSent);
        const std::string counts = "All urls [" + std::to_string(load_.allUrls) + "], matched from cache [" +
                                   std::to_string(load_.matchedUrls) + "],";
        if (log_.statistics().substr(0, counts.size()) != counts)
            findings_.add("wrong statistics: " + log_.statistics() + " instead of " + counts);
        bool allDone = log_.rotations() > 0;
        for (const auto& done : load_.deeds)
            allDone = allDone && done > 0;
        if (!allDone && !interrupted_) findings_.add("the soak was too short to do everything once");
    }

    // Kills katd again and again while a client has it save the cache, now and then before it serves. The
    // cache file is complete, and the next katd starts on what the last one left.
    void killOften() {
        std::atomic<bool> isOver{false};
        std::thread client([&] {
            for (; !isOver; usleep(1000)) {
                Client saver(home_.socketPath());
                while (!isOver && saver.connected() && saver.ask("hit.example") &&
                       saver.control("save_cache")) {
                }
            }
        });
        katd_->kill(SIGKILL);
        for (int i = 0; i < 12 && !findings_.any(); ++i) {
            katd_.emplace(home_, std::vector<std::string>(), environment);
            if (i % 4 != 0) usleep(static_cast<unsigned>(i) * 15000);
            if (i % 4 == 3 && !katd_->waitUntilServing()) findings_.add("katd does not start again");
            if (!katd_->isRunning()) findings_.add("katd ended instead of starting: " + katd_->output());
            katd_->kill(SIGKILL);
            if (!Load::isWholeCache(home_ / "data/cache"))
                findings_.add("a killed katd left an incomplete cache");
        }
        isOver = true;
        client.join();
        katd_.emplace(home_, std::vector<std::string>(), environment);
        if (!katd_->waitUntilServing()) findings_.add("katd does not start again");
    }

    int summary(const Usage& warm, const Usage& end) {
        const auto requests = static_cast<unsigned long long>(load_.requests);
        const auto answers = static_cast<double>(load_.answers);
        std::printf("%.0f s: %llu requests, %.0f correct answers, %.0f/s\n", elapsed(), requests, answers,
                    answers / elapsed());
        for (int deed = 0; deed < Load::DEEDS; ++deed)
            std::printf("%u %s, ", load_.deeds[deed].load(), Load::deedNames[deed]);
        std::printf("%u log rotations, %lu log records, %u markers\n", log_.rotations(), log_.records(),
                    load_.markersSent[0] + load_.markersSent[1]);
        std::printf(
            "without clients, after a third and at the end: threads %ld, %ld; descriptors %ld, %ld; kB %ld, "
            "%ld\n",
            warm.threads, end.threads, warm.descriptors, end.descriptors, warm.memoryKb, end.memoryKb);
        const bool ended = !katd_->isRunning();
        if (ended) std::printf("WRONG: katd ended with status %d\n", katd_->waitForExit(0));
        for (const std::string& text : findings_.texts())
            std::printf("WRONG: %s\n", text.c_str());
        const bool failed = ended || findings_.any();
        if (failed) {
            const std::string log = home_.log();
            std::printf("The end of katd's log:\n%s",
                        log.substr(log.size() - std::min<std::size_t>(log.size(), 1500)).c_str());
        }
        std::printf("soak: %s\n", failed ? "FAILED" : interrupted_ ? "interrupted" : "passed");
        return failed ? 1 : 0;
    }

    const double seconds_;
    Findings findings_;
    const Home home_{Settings{{"log_level", "error"},
                              {"size_limit", "64"},
                              {"rotation_number", std::to_string(ROTATED_FILES)},
                              {"max_cache_entries", "200"}}};
    Load load_{home_, findings_};
    LogFiles log_{home_.logPath(), ROTATED_FILES, Load::MARKERS, findings_};
    // No trace, which would grow without limit. One arena: the memory that the allocator keeps in many would
    // hide what katd itself keeps.
    static inline const Daemon::Environment environment = {{"ASAPSDK_TRACE", "-"}, {"MALLOC_ARENA_MAX", "1"}};
    std::optional<Daemon> katd_{std::in_place, home_, std::vector<std::string>(), environment};
    sigset_t endSignals_;
    bool interrupted_ = false;
    const Clock::time_point start_ = Clock::now();
    double nextLine_ = 2;
    double lastLine_ = 0;
    std::uint64_t lastAnswers_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    char* end = nullptr;
    const double minutes = argc == 2 ? std::strtod(argv[1], &end) : 0;
    if (argc != 2 || *end != '\0' || !(minutes > 0)) {
        std::fprintf(stderr, "usage: soak MINUTES\n");
        return 2;
    }
    // katd inherits this: Ctrl-C ends the soak only.
    signal(SIGINT, SIG_IGN);
    return Soak(minutes * 60).run();
}
