// The command line of katc.
#ifndef KATC_ARGUMENTS_H
#define KATC_ARGUMENTS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ExitStatus.h"
#include "QueryRunner.h"
#include "katclient.h"

namespace katc {

// Makes a control request; returns a katclient_status.
using ControlRequest = std::function<int(katclient*)>;

struct Arguments {
    std::string socket;              // -s; empty: the settings name it
    QueryOptions query;              // all but lostMs
    bool json = false;               // --json
    std::string namesFile;           // --categories; empty: none
    std::optional<unsigned> waitMs;  // --wait
    std::vector<std::string> urls;   // "-" stands for standard input; empty for a control request
    ControlRequest control;          // empty for URLs
};

// Reads the command line. True: go on with `arguments`. False: end with *status, all output has been printed.
bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status);

}  // namespace katc

#endif
