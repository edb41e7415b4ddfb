// The questions that katc asks.
#ifndef KATC_QUERYRUNNER_H
#define KATC_QUERYRUNNER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "ExitStatus.h"
#include "ResultPrinter.h"
#include "katclient.h"

namespace katc {

struct QueryOptions {
    bool withRetry = false;
    bool asHelper = false;   // ask for the URL for which katc helper would ask
    bool keepsPort = false;  // with asHelper
    unsigned answerMs = 0;   // time limit for an answer; 0: none
    unsigned lostMs = 0;     // how long to try to reach a daemon that has answered before
};

// Asks for the categories of URLs and prints the answers in the order of the URLs. Not thread-safe.
class QueryRunner {
public:
    // Client and printer must outlive the object.
    QueryRunner(katclient* client, ResultPrinter* printer, const QueryOptions& options)
        : client_(client), printer_(printer), options_(options) {}

    // Asks for all URLs; "-" stands for the lines of standard input, of which those that have arrived are
    // asked together. Goes on after a URL without an answer, but stops if there is no daemon or an answer
    // cannot be printed. Returns the most serious status.
    ExitStatus askAll(const std::vector<std::string>& urls);

private:
    // These return false if it makes no sense to go on.
    bool askLines();
    bool ask(const std::vector<std::string_view>& urls);
    bool take(std::string_view url, const katclient_answer& answer, int firstStatus);
    void prepare(const std::vector<std::string_view>& urls);

    katclient* const client_;
    ResultPrinter* const printer_;
    const QueryOptions options_;
    ExitStatus status_ = answered;
    bool hasConnected_ = false;
    // Used by ask(), kept for their memory.
    std::string asked_;
    std::vector<const char*> pointers_;
    std::vector<std::size_t> lengths_;
    std::vector<katclient_answer> results_;
};

}  // namespace katc

#endif
