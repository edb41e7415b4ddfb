#include "helper/Helper.h"

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
#include "LineReader.h"
#include "SocketPath.h"
#include "helper/AnswerLine.h"
#include "helper/HelperOptions.h"
#include "helper/RequestLine.h"
#include "katclient.h"
#include "tools/AskedUrl.h"
#include "tools/Text.h"

namespace katc {

namespace {

using Client = std::unique_ptr<katclient, decltype(&katclient_close)>;

constexpr std::size_t maxLine = std::size_t{1024} * 1024;

// Squid shows standard error in its cache.log.
void report(const std::string& sentence) {
    tools::printError("katc helper", sentence);
}

// Writes all of the text, with one call if possible. Ends the process if that fails: squid has gone, or will
// miss answers.
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
            report(std::string("cannot write an answer (") + std::strerror(errno) + ")");
            _exit(unanswered);
        }
    }
}

// Reports once that katd has gone and once that it is back; and at most once a minute that an answer was
// late, for which one URL may be the reason. Thread-safe.
class AvailabilityReporter {
public:
    // `first` is the first status of a batch that is not KATCLIENT_OK, which the client's message describes;
    // `last` is the status of its last answer.
    void note(int first, int last, const katclient* client) {
        if (first == KATCLIENT_TIMED_OUT) noteLate();
        const bool isAway =
            last == KATCLIENT_NO_DAEMON || last == KATCLIENT_BAD_REPLY || last == KATCLIENT_CLOSED;
        if (isAway == isAway_.load(std::memory_order_relaxed) || (!isAway && last != KATCLIENT_OK)) return;
        if (isAway_.exchange(isAway) == isAway) return;
        if (isAway) {
            reportFailure(last == first ? katclient_message(client) : katclient_status_text(last));
        } else {
            report("katd answers again");
        }
    }

private:
    static void reportFailure(const std::string& sentence) {
        report(sentence + "; URLs are answered as --on-failure says");
    }
    void noteLate() {
        const std::int64_t now = std::chrono::duration_cast<std::chrono::seconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count();
        std::int64_t next = nextLateSec_.load();
        if (now >= next && nextLateSec_.compare_exchange_strong(next, now + 60))
            reportFailure(katclient_status_text(KATCLIENT_TIMED_OUT));
    }

    std::atomic<bool> isAway_{false};
    std::atomic<std::int64_t> nextLateSec_{0};  // on the steady clock; earlier late answers are not reported
};

// The lines that a thread has taken. The buffers are kept for its next ones, so that few lines need an
// allocation.
struct Batch {
    explicit Batch(std::size_t limit) : lines(limit), lengths(limit), urls(limit), answers(limit) {}

    std::string text;                  // the lines as received
    std::vector<RequestLine> lines;    // parsed; parts of `text`
    std::string asked;                 // the URLs for katd, one after the other
    std::vector<std::size_t> lengths;  // of each that is asked
    std::vector<const char*> urls;     // parts of `asked`
    std::vector<katclient_answer> answers;
    std::string output;
};

// The threads take turns: one reads lines, and while it asks katd and answers, the next one reads.
class Pipeline {
public:
    explicit Pipeline(const HelperOptions& options)
        : options_(options), input_(STDIN_FILENO, maxLine, options.hasChannels) {}

    // Serves with one client until the input ends. Each thread calls it.
    void serve(katclient* client) {
        try {
            Batch batch(options_.batch);
            while (take(&batch.text)) {
                answer(client, &batch);
                const std::lock_guard<std::mutex> guard(outputMutex_);
                writeOrEnd(batch.output);
            }
        } catch (const std::exception& e) {
            report(e.what() + std::string(": free some memory"));
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
    // Returns the number of lines.
    std::size_t parse(Batch* batch);

    const HelperOptions& options_;
    std::mutex inputMutex_;
    LineReader input_;        // guarded by inputMutex_
    std::mutex outputMutex_;  // for standard output
    AvailabilityReporter reporter_;
    // Without --concurrency, and so with one thread: squid.conf has concurrency. Answers must repeat the
    // channel-IDs, or squid aborts.
    bool hasUnexpectedChannels_ = false;
    bool isFirst_ = true;
};

std::size_t Pipeline::parse(Batch* batch) {
    std::string_view rest = batch->text;
    // Squid numbers the channels of each helper from 1, or in some versions from 0.
    if (!options_.hasChannels && isFirst_) {
        const std::string_view begin = rest.substr(0, 2);
        hasUnexpectedChannels_ = begin == "0 " || begin == "1 ";
        isFirst_ = false;
    }
    std::size_t count = 0;
    for (; !rest.empty(); ++count) {
        const std::size_t size = rest.find('\n');
        RequestLine& line = batch->lines[count];
        line = parseRequestLine(rest.substr(0, size), options_.hasChannels || hasUnexpectedChannels_,
                                options_.urlField);
        if (hasUnexpectedChannels_ && line.problem == nullptr) line.problem = missingConcurrency;
        rest.remove_prefix(size + 1);
    }
    return count;
}

void Pipeline::answer(katclient* client, Batch* batch) {
    const std::size_t lineCount = parse(batch);
    std::size_t count = 0;
    batch->asked.clear();
    for (std::size_t i = 0; i < lineCount; ++i) {
        RequestLine& line = batch->lines[i];
        if (line.problem != nullptr) continue;
        const std::size_t begin = batch->asked.size();
        tools::appendAskedUrl(line.url, !options_.rewrites, options_.keepsPort, &batch->asked);
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
        reporter_.note(first, batch->answers[count - 1].status, client);
    }
    batch->output.clear();
    const katclient_answer* next = batch->answers.data();
    for (std::size_t i = 0; i < lineCount; ++i) {
        const RequestLine& line = batch->lines[i];
        if (line.problem != nullptr) {
            appendProblem(line, line.problem, &batch->output);
        } else {
            appendAnswer(options_, line, *next++, &batch->output);
        }
    }
}

// False, with a message on standard error, if a client cannot be made.
bool openClients(const HelperOptions& options, std::vector<Client>* clients) {
    // Without channel-IDs squid expects the answers in the order of the lines: one thread keeps it.
    for (unsigned i = options.hasChannels ? options.connections : 1; i > 0; --i) {
        katclient* client = nullptr;
        const int status = katclient_open(options.socket.c_str(), &client);
        if (status != KATCLIENT_OK) {
            report(openProblem(status, options.socket));
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
    std::string problem;
    if (options.socket.empty() && !findSocket(&options.socket, &problem)) {
        report(problem);
        return badUsage;
    }
    std::vector<Client> clients;
    if (!openClients(options, &clients)) return badUsage;

    Pipeline pipeline(options);
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < clients.size(); ++i) {
        try {
            threads.emplace_back(&Pipeline::serve, &pipeline, clients[i].get());
        } catch (const std::system_error&) {
            break;  // fewer threads do, if more slowly
        }
    }
    pipeline.serve(clients[0].get());
    for (std::thread& thread : threads)
        thread.join();
    if (pipeline.inputError() == 0) return answered;
    report(std::string("cannot read standard input (") + std::strerror(pipeline.inputError()) +
           "): squid starts this program with a pipe");
    return unanswered;
}

}  // namespace katc
