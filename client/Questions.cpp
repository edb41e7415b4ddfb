#include "Questions.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "Lines.h"

namespace katc {

namespace {

// More lines are asked together while that takes less than the first time, fewer when it takes more than the
// second: answers are to be seen as they come.
constexpr std::chrono::milliseconds quick(50);
constexpr std::chrono::milliseconds slow(200);
constexpr std::size_t mostTogether = 512;

}  // namespace

Questions::Questions(katclient* client, Answers* answers, bool withRetry, unsigned lostMs, unsigned answerMs)
    : client_(client),
      answers_(answers),
      flags_(withRetry ? KATCLIENT_RETRY : 0),
      lostMs_(lostMs),
      answerMs_(answerMs) {}

ExitStatus Questions::askAll(const std::vector<std::string>& urls) {
    for (const std::string& url : urls) {
        if (!(url == "-" ? askLines() : ask({url}))) break;
    }
    return status_;
}

bool Questions::askLines() {
    Lines lines;
    std::size_t together = 1;
    for (;;) {
        const std::vector<std::string_view>& urls = lines.next(together);
        if (urls.empty()) break;
        const auto start = std::chrono::steady_clock::now();
        if (!ask(urls)) return false;
        const auto passed = std::chrono::steady_clock::now() - start;
        if (passed < quick) together = std::min(together * 2, mostTogether);
        if (passed > slow) together = std::max<std::size_t>(together / 4, 1);
    }
    if (lines.error == 0) return true;
    tell(std::string("cannot read standard input (") + std::strerror(lines.error) +
         "): give it a text file or a pipe");
    status_ = unanswered;
    return false;
}

bool Questions::ask(const std::vector<std::string_view>& urls) {
    urls_.clear();
    lengths_.clear();
    for (const std::string_view url : urls) {
        urls_.push_back(url.data());
        lengths_.push_back(url.size());
    }
    if (results_.size() < urls.size()) results_.resize(urls.size());
    const int first =
        katclient_ask_many(client_, urls_.data(), lengths_.data(), urls.size(), flags_, results_.data());
    bool goOn = true;
    for (std::size_t i = 0; i < urls.size() && goOn; ++i)
        goOn = take(urls[i], results_[i], first);
    if (answers_->write()) return goOn;
    if (status_ == answered) status_ = unanswered;
    return false;
}

bool Questions::take(std::string_view url, const katclient_answer& answer, int firstStatus) {
    if (answer.status == KATCLIENT_OK) {
        answers_->add(url, answer);
        // From now on a daemon that cannot be reached is one that starts anew.
        if (!hasConnected_) katclient_set_limits(client_, lostMs_, answerMs_);
        hasConnected_ = true;
        return true;
    }
    const char* sentence =
        answer.status == firstStatus ? katclient_message(client_) : katclient_status_text(answer.status);
    // What only the input of a program can hold.
    if (url.empty()) sentence = "an empty URL is not asked: write one URL a line";
    if (url.find('\0') != url.npos)
        sentence = "a URL with a zero byte is not asked: write one URL a line, as text";
    answers_->addFailure(url, sentence);
    status_ = answer.status == KATCLIENT_NO_DAEMON ? noDaemon : unanswered;
    return answer.status != KATCLIENT_NO_DAEMON;
}

}  // namespace katc
