#include "QueryRunner.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "LineReader.h"
#include "tools/AskedUrl.h"

namespace katc {

namespace {

// The number of lines asked together doubles while that takes less than `quick` and falls while it takes more
// than `slow`, so that answers are seen as they come.
constexpr std::chrono::milliseconds quick(50);
constexpr std::chrono::milliseconds slow(200);
constexpr std::size_t maxTogether = 512;

// Without line ends. A carriage return belongs to the end: katd would ignore it, but the output would contain
// it.
void splitLines(std::string_view text, std::vector<std::string_view>* lines) {
    lines->clear();
    while (!text.empty()) {
        const std::size_t size = text.find('\n');
        const bool hasReturn = size > 0 && text[size - 1] == '\r';
        lines->push_back(text.substr(0, hasReturn ? size - 1 : size));
        text.remove_prefix(size + 1);
    }
}

}  // namespace

ExitStatus QueryRunner::askAll(const std::vector<std::string>& urls) {
    for (const std::string& url : urls) {
        if (!(url == "-" ? askLines() : ask({url}))) break;
    }
    return status_;
}

bool QueryRunner::askLines() {
    LineReader reader(STDIN_FILENO);
    std::string text;
    std::vector<std::string_view> urls;
    std::size_t together = 1;
    while (reader.take(together, &text)) {
        splitLines(text, &urls);
        const auto start = std::chrono::steady_clock::now();
        if (!ask(urls)) return false;
        const auto passed = std::chrono::steady_clock::now() - start;
        if (passed < quick) together = std::min(together * 2, maxTogether);
        if (passed > slow) together = std::max<std::size_t>(together / 4, 1);
    }
    if (reader.error() == 0) return true;
    report(std::string("cannot read standard input (") + std::strerror(reader.error()) +
           "): give it a text file or a pipe");
    status_ = unanswered;
    return false;
}

// Sets pointers_ and lengths_ to what katd is asked.
void QueryRunner::prepare(const std::vector<std::string_view>& urls) {
    pointers_.clear();
    lengths_.clear();
    asked_.clear();
    for (const std::string_view url : urls) {
        const std::size_t begin = asked_.size();
        if (options_.asHelper) tools::appendAskedUrl(url, true, options_.keepsPort, &asked_);
        lengths_.push_back(options_.asHelper ? asked_.size() - begin : url.size());
    }
    const char* next = asked_.data();
    for (std::size_t i = 0; i < urls.size(); ++i) {
        pointers_.push_back(options_.asHelper ? next : urls[i].data());
        next += lengths_[i];
    }
}

bool QueryRunner::ask(const std::vector<std::string_view>& urls) {
    prepare(urls);
    if (results_.size() < urls.size()) results_.resize(urls.size());
    const int first = katclient_ask_many(client_, pointers_.data(), lengths_.data(), urls.size(),
                                         options_.withRetry ? KATCLIENT_RETRY : 0, results_.data());
    bool goOn = true;
    for (std::size_t i = 0; i < urls.size() && goOn; ++i)
        goOn = take(urls[i], results_[i], first);
    if (printer_->write()) return goOn;
    if (status_ == answered) status_ = unanswered;
    return false;
}

bool QueryRunner::take(std::string_view url, const katclient_answer& answer, int firstStatus) {
    if (answer.status == KATCLIENT_OK) {
        printer_->add(url, answer);
        // A daemon that cannot be reached after this is being restarted.
        if (!hasConnected_) katclient_set_limits(client_, options_.lostMs, options_.answerMs);
        hasConnected_ = true;
        return true;
    }
    const char* reason =
        answer.status == firstStatus ? katclient_message(client_) : katclient_status_text(answer.status);
    if (url.empty())
        reason = "an empty URL is not asked: write one URL per line";
    else if (url.find('\0') != url.npos)
        reason = "a URL with a zero byte is not asked: write one URL per line, as text";
    else if (answer.status == KATCLIENT_BAD_ARGUMENT && options_.asHelper)
        reason = "the URL has no host";
    printer_->addFailure(url, reason);
    status_ = answer.status == KATCLIENT_NO_DAEMON ? noDaemon : unanswered;
    return answer.status != KATCLIENT_NO_DAEMON;
}

}  // namespace katc
