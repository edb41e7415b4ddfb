// The pages that people see.
#ifndef GATEWAY_PAGES_H
#define GATEWAY_PAGES_H

#include <string>
#include <string_view>
#include <vector>

#include "History.h"
#include "Policy.h"
#include "tools/CategoryNames.h"

namespace gateway {

// A page and the value of its Content-Security-Policy, which allows this page's own style and script alone.
struct Page {
    std::string html;
    std::string contentSecurityPolicy;
};

// The block page. `category` is the name of the category that caused the refusal; may be empty.
Page blockedPage(const Policy& policy, std::string_view url, const std::string& category);

// The page at the block page's address if the URL is not refused: a forged link cannot claim a block.
Page notBlockedPage(std::string_view url);

// katd gave no answer, or the address of the block page lacks what it needs. `sentence` says which.
Page problemPage(const std::string& title, const std::string& sentence);

// One URL that an administrator asked for.
struct LookUp {
    std::string url;      // empty: none was asked
    std::string problem;  // a sentence; empty: there is an answer
    bool isKnown = false;
    std::vector<std::string> categories;  // numbers, with their names
    std::string explanation;              // HTML, rows of a <dl>: how katd comes to the answer
};

Page administratorPage(const LookUp& lookUp, const std::vector<History::Minute>& minutes,
                       const tools::CategoryNames& names);

}  // namespace gateway

#endif
