// The questions that katc asks, and what it prints of the answers.
#ifndef KATC_QUESTIONS_H
#define KATC_QUESTIONS_H

#include <string>
#include <string_view>
#include <vector>

#include "Connection.h"
#include "ExitStatus.h"

namespace katc {

// Asks for the categories of URLs and prints, as soon as it has come, each answer as one line on standard
// output: the URL, a tab, "known" or "unknown", a tab, the category numbers with commas between. A URL
// without an answer has no line, but a sentence on standard error. For one thread.
class Questions {
public:
    // `withRetry`: the daemon is to ask again while the engine answers Unknown. The connection must outlive
    // the object.
    Questions(Connection* connection, bool withRetry);

    // Asks for the URLs in order; "-" stands for the lines of standard input. Goes on after a URL without an
    // answer, but ends when there is no daemon, and when an answer cannot be printed. The most serious
    // status.
    ExitStatus askAll(const std::vector<std::string>& urls);

private:
    // Both return false when it makes no sense to go on.
    bool askLines();
    bool askOne(std::string_view url);
    bool print(std::string_view url, const Reply& reply);

    Connection* const connection_;
    const char* const prefix_;  // of the protocol
    ExitStatus status_ = answered;
};

// Sends a control request: the keyword and its operands. Prints nothing but the problem.
ExitStatus sendControl(Connection* connection, std::string_view body);

}  // namespace katc

#endif
