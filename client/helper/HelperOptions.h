// The command line of katc helper.
#ifndef KATC_HELPER_HELPEROPTIONS_H
#define KATC_HELPER_HELPEROPTIONS_H

#include <bitset>
#include <optional>
#include <string>

#include "helper/Redirect.h"
#include "tools/CategoryNames.h"

namespace katc {

// Answers to squid; `redirect` only with rewrite.
enum class Verdict { ok, err, bh, redirect };

struct HelperOptions {
    bool rewrites = false;             // for url_rewrite_program, else for external_acl_type
    std::string socket;                // -s; empty: the settings name it
    bool hasChannels = false;          // each line begins with a channel-ID
    unsigned urlField = 1;             // which value of a line is the URL, from 1
    std::bitset<256> named;            // categories of --block or --allow; without these, all
    bool allows = false;               // `named` are those of --allow
    tools::CategoryNames names;        // of --categories
    Redirect redirect;                 // with rewrite
    unsigned redirectStatus = 302;     // of HTTP
    Verdict onFailure = Verdict::bh;   // katd gave no answer
    std::optional<Verdict> onUnknown;  // katd has no certain answer; none: as for a URL without a category
    bool withRetry = false;            // katd asks its engine again
    bool keepsPort = false;            // the port is asked too
    unsigned connections = 4;          // to katd, one thread each
    unsigned batch = 16;               // lines that one connection takes at once
    unsigned answerMs = 15000;         // time limit for an answer; 0: none
    unsigned waitMs = 0;               // how long to try to reach katd
};

// Reads the words after "katc"; argv[0] is "helper". True: go on. False: end with *status, all output has
// been printed.
bool parseHelperOptions(int argc, const char* const* argv, HelperOptions* options, int* status);

}  // namespace katc

#endif
