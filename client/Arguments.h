// The command line of katc.
#ifndef KATC_ARGUMENTS_H
#define KATC_ARGUMENTS_H

#include <string>
#include <vector>

#include "ExitStatus.h"

namespace katc {

struct Arguments {
    std::string socket;             // of -s; empty: the settings name it
    bool withRetry = false;         // -r
    std::vector<std::string> urls;  // "-" stands for standard input; empty for a control request
    std::string control;            // body of a control request, operands included; empty for URLs
};

// Reads the command line. True: katc goes on with `arguments`. False: it ends with `status`, everything
// having been printed: help or version on standard output, what is wrong on standard error.
bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status);

}  // namespace katc

#endif
