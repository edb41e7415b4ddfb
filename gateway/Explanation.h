// How katd comes to an answer, for the administrator's page.
#ifndef GATEWAY_EXPLANATION_H
#define GATEWAY_EXPLANATION_H

#include <mutex>
#include <string>

#include "katclient.h"
#include "tools/CategoryNames.h"

namespace gateway {

// Runs "katc why", a program of its own: what it reads is large and may be damaged, and this process has
// requests to answer. Thread-safe.
class Explainer {
public:
    // The output of katc for the URL, or a sentence: it cannot be run, does not end in time, or already runs
    // for another caller. Callers never queue up.
    std::string ask(const std::string& url);

private:
    std::mutex mutex_;  // held while the program runs
};

// Rows of a <dl> for the output of katc: a JSON object and lines with problems, in any order. `answer` is
// katd's own.
std::string explanationHtml(const std::string& output, const katclient_answer& answer,
                            const tools::CategoryNames& names);

}  // namespace gateway

#endif
