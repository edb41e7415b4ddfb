// The command line of katc.
#ifndef KATC_ARGUMENTS_H
#define KATC_ARGUMENTS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ExitStatus.h"
#include "katclient.h"

namespace katc {

struct Arguments {
    std::string socket;              // of -s; empty: the settings name it
    bool withRetry = false;          // -r
    bool json = false;               // --json
    std::string namesFile;           // --names; empty: none
    unsigned answerMs = 0;           // --timeout; 0: no limit
    std::optional<unsigned> waitMs;  // --wait
    std::vector<std::string> urls;   // "-" stands for standard input; empty for a control request
    // Makes the control request; empty for URLs. Returns a katclient_status.
    std::function<int(katclient*)> control;
};

// Reads the command line. True: katc goes on with `arguments`. False: it ends with `status`, everything
// having been printed: help or version on standard output, what is wrong on standard error.
bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status);

}  // namespace katc

#endif
