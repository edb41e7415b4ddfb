#include "Helper.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "ExitStatus.h"
#include "HelperAnswer.h"
#include "HelperInput.h"
#include "HelperLine.h"
#include "HelperOptions.h"
#include "Settings.h"
#include "katclient.h"

namespace katc {

namespace {

using Client = std::unique_ptr<katclient, decltype(&katclient_close)>;

// Squid shows standard error in its cache.log.
void tell(const std::string& sentence) {
    std::fprintf(stderr, "katc helper: %s.\n", sentence.c_str());
}

// Writes all of the text, one call if it can. What cannot be written ends the process: the other threads are
// reading from a squid that is gone, or whose answers are.
void writeOrEnd(std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(STDOUT_FILENO, text.data(), text.size());
        if (size >= 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno == EAGAIN) {
            pollfd events{STDOUT_FILENO, POLLOUT, 0};
            poll(&events, 1, -1);
        } else if (errno == EPIPE) {
            _exit(answered);
        } else if (errno != EINTR) {
            tell(std::string("cannot write an answer (") + std::strerror(errno) + ")");
            _exit(unanswered);
        }
    }
}

// Says once that katd has gone, and once that it is back; and at most once a minute that an answer was late,
// which one URL can be the reason of. For all threads.
class Presence {
public:
    // `first` is the status of the first answer of a batch that is none, with the client's message; `last`
    // that of the last answer.
    void note(int first, int last, const katclient* client) {
        if (first == KATCLIENT_TIMED_OUT) noteLate();
        const bool isAway =
            last == KATCLIENT_NO_DAEMON || last == KATCLIENT_BAD_REPLY || last == KATCLIENT_CLOSED;
        if (isAway == isAway_.load(std::memory_order_relaxed) || (!isAway && last != KATCLIENT_OK)) return;
        if (isAway_.exchange(isAway) == isAway) return;
        if (isAway) {
            tellFailure(last == first ? katclient_message(client) : katclient_status_text(last));
        } else {
            tell("katd answers again");
        }
    }

private:
    static void tellFailure(const std::string& sentence) {
        tell(sentence + "; URLs are answered as --on-failure says");
    }
    void noteLate() {
        const std::int64_t now = std::chrono::duration_cast<std::chrono::seconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count();
        std::int64_t next = nextLateSec_.load();
        if (now >= next && nextLateSec_.compare_exchange_strong(next, now + 60))
            tellFailure(katclient_status_text(KATCLIENT_TIMED_OUT));
    }

    std::atomic<bool> isAway_{false};
    std::atomic<std::int64_t> nextLateSec_{0};  // before it, on the steady clock, late answers are not told
};

// What a thread needs for the lines that it has taken. All of it is kept for the next ones: nothing is
// allocated for a line once the longest has come by.
struct Batch {
    explicit Batch(std::size_t limit) : lines(limit), lengths(limit), urls(limit), answers(limit) {}

    std::string text;                  // the lines as they came
    std::vector<HelperLine> lines;     // taken apart; parts of `text`
    std::string asked;                 // what katd is asked, one after the other
    std::vector<std::size_t> lengths;  // of each that is asked
    std::vector<const char*> urls;     // parts of `asked`
    std::vector<katclient_answer> answers;
    std::string output;
};

// The threads take turns: one reads what squid has sent, and while it asks katd and answers, the next one
// reads.
class Helper {
public:
    explicit Helper(const HelperOptions& options)
        : options_(options), input_(STDIN_FILENO, options.hasChannels) {}

    // Serves with one client until the input ends. For each of the threads.
    void serve(katclient* client) {
        try {
            Batch batch(options_.batch);
            while (take(&batch.text)) {
                answer(client, &batch);
                const std::lock_guard<std::mutex> guard(outputMutex_);
                writeOrEnd(batch.output);
            }
        } catch (const std::exception& e) {
            tell(e.what() + std::string(": free some memory"));
            _exit(unanswered);
        }
    }

    int inputError() const { return input_.error(); }

private:
    bool take(std::string* lines) {
        const std::lock_guard<std::mutex> guard(inputMutex_);
        return input_.take(options_.batch, lines);
    }
    void answer(katclient* client, Batch* batch);
    // The number of lines.
    std::size_t parse(Batch* batch) const;

    const HelperOptions& options_;
    std::mutex inputMutex_;
    HelperInput input_;       // guarded by inputMutex_
    std::mutex outputMutex_;  // answers of different threads do not mix
    Presence presence_;
};

std::size_t Helper::parse(Batch* batch) const {
    std::string_view rest = batch->text;
    std::size_t count = 0;
    for (; !rest.empty(); ++count) {
        const std::size_t size = rest.find('\n');
        HelperLine& line = batch->lines[count];
        line = parseHelperLine(rest.substr(0, size), options_.hasChannels, options_.urlField);
        rest.remove_prefix(size + 1);
    }
    return count;
}

void Helper::answer(katclient* client, Batch* batch) {
    const std::size_t lineCount = parse(batch);
    std::size_t count = 0;
    batch->asked.clear();
    for (std::size_t i = 0; i < lineCount; ++i) {
        HelperLine& line = batch->lines[i];
        if (line.problem != nullptr) continue;
        const std::size_t begin = batch->asked.size();
        appendAsked(line.url, !options_.rewrites, options_.keepsPort, &batch->asked);
        const std::size_t length = batch->asked.size() - begin;
        if (length == 0) {
            line.problem = "the URL has no host";
        } else {
            batch->lengths[count++] = length;
        }
    }
    const char* url = batch->asked.data();
    for (std::size_t i = 0; i < count; url += batch->lengths[i++])
        batch->urls[i] = url;
    if (count > 0) {
        const int first = katclient_ask_many(client, batch->urls.data(), batch->lengths.data(), count,
                                             options_.withRetry ? KATCLIENT_RETRY : 0, batch->answers.data());
        presence_.note(first, batch->answers[count - 1].status, client);
    }
    batch->output.clear();
    const katclient_answer* next = batch->answers.data();
    for (std::size_t i = 0; i < lineCount; ++i) {
        const HelperLine& line = batch->lines[i];
        if (line.problem != nullptr) {
            appendProblem(line, line.problem, &batch->output);
        } else {
            appendAnswer(options_, line, *next++, &batch->output);
        }
    }
}

// False, with a sentence on standard error, when there can be no client.
bool openClients(const HelperOptions& options, std::vector<Client>* clients) {
    // Without channel-IDs squid knows an answer by its place: one thread keeps them in order.
    for (unsigned i = options.hasChannels ? options.connections : 1; i > 0; --i) {
        katclient* client = nullptr;
        const int status = katclient_open(options.socket.c_str(), &client);
        if (status != KATCLIENT_OK) {
            tell(status == KATCLIENT_NO_MEMORY
                     ? "there is too little memory: free some"
                     : "the path " + options.socket + " cannot be a socket's: name katd's socket with -s");
            return false;
        }
        clients->emplace_back(client, katclient_close);
        katclient_set_limits(client, options.waitMs, options.answerMs);
    }
    return true;
}

}  // namespace

int helperMain(int argc, const char* const* argv) {
    std::signal(SIGPIPE, SIG_IGN);
    HelperOptions options;
    int status = answered;
    if (!parseHelperOptions(argc, argv, &options, &status)) return status;
    if (options.socket.empty() && !socketFromSettings(&options.socket)) return badUsage;
    std::vector<Client> clients;
    if (!openClients(options, &clients)) return badUsage;

    Helper helper(options);
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < clients.size(); ++i) {
        try {
            threads.emplace_back(&Helper::serve, &helper, clients[i].get());
        } catch (const std::system_error&) {
            break;  // fewer serve as well, if more slowly
        }
    }
    helper.serve(clients[0].get());
    for (std::thread& thread : threads)
        thread.join();
    if (helper.inputError() == 0) return answered;
    tell(std::string("cannot read standard input (") + std::strerror(helper.inputError()) +
         "): squid starts this program with a pipe");
    return unanswered;
}

}  // namespace katc
