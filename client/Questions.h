// The questions that katc asks.
#ifndef KATC_QUESTIONS_H
#define KATC_QUESTIONS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Answers.h"
#include "ExitStatus.h"
#include "katclient.h"

namespace katc {

// Asks for the categories of URLs and prints the answers in the order of the URLs. For one thread.
class Questions {
public:
    // `lostMs`: how long to go on trying to reach a daemon that has answered before. Client and answers must
    // outlive the object.
    Questions(katclient* client, Answers* answers, bool withRetry, unsigned lostMs, unsigned answerMs);

    // "-" stands for the lines of standard input: those that are there are asked together. Goes on after a
    // URL without an answer, but ends when there is no daemon, and when an answer cannot be printed. The most
    // serious status.
    ExitStatus askAll(const std::vector<std::string>& urls);

private:
    // All return false when it makes no sense to go on.
    bool askLines();
    bool ask(const std::vector<std::string_view>& urls);
    bool take(std::string_view url, const katclient_answer& answer, int firstStatus);

    katclient* const client_;
    Answers* const answers_;
    const unsigned flags_;
    const unsigned lostMs_;
    const unsigned answerMs_;
    ExitStatus status_ = answered;
    bool hasConnected_ = false;
    // Of one call of ask(), kept for their memory.
    std::vector<const char*> urls_;
    std::vector<std::size_t> lengths_;
    std::vector<katclient_answer> results_;
};

// Makes a control request. Prints nothing but the problem.
template <class Request>
ExitStatus sendControl(katclient* client, const Request& request) {
    const int status = request(client);
    if (status == KATCLIENT_OK) return answered;
    tell(std::string("the request was not carried out, ") + katclient_message(client));
    return status == KATCLIENT_NO_DAEMON ? noDaemon : unanswered;
}

}  // namespace katc

#endif
