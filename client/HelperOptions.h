// The command line of katc helper.
#ifndef KATC_HELPEROPTIONS_H
#define KATC_HELPEROPTIONS_H

#include <bitset>
#include <optional>
#include <string>

#include "HelperRedirect.h"
#include "tools/CategoryNames.h"

namespace katc {

// What squid is told for a URL. `redirect` is of rewriting alone.
enum class Verdict { ok, err, bh, redirect };

struct HelperOptions {
    bool rewrites = false;             // for url_rewrite_program; else for external_acl_type
    std::string socket;                // of -s; empty: the settings name it
    bool hasChannels = false;          // each line begins with a channel-ID
    unsigned urlField = 1;             // which value of a line is the URL, from 1
    std::bitset<256> named;            // categories of --block or --allow, or all
    bool allows = false;               // `named` are those of --allow
    tools::CategoryNames names;        // for messages and the redirect
    HelperRedirect redirect;           // of rewriting
    unsigned redirectStatus = 302;     // of HTTP
    Verdict onFailure = Verdict::bh;   // katd gave no answer
    std::optional<Verdict> onUnknown;  // katd has no certain answer; none: as for no category
    bool withRetry = false;            // katd asks its engine again
    bool keepsPort = false;            // a port is asked too
    unsigned connections = 4;          // to katd, each of a thread of its own
    unsigned batch = 16;               // lines that one connection takes at once
    unsigned answerMs = 15000;         // limit of one answer; 0: none
    unsigned waitMs = 0;               // how long to try to reach katd
};

// Reads the words behind "katc"; argv[0] is "helper". True: the helper goes on. False: it ends with `status`,
// all having been printed.
bool parseHelperOptions(int argc, const char* const* argv, HelperOptions* options, int* status);

}  // namespace katc

#endif
