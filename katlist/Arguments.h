// The command line of katlist.
#ifndef KATLIST_ARGUMENTS_H
#define KATLIST_ARGUMENTS_H

#include "Build.h"
#include "Check.h"
#include "Find.h"
#include "Shared.h"
#include "Stat.h"

namespace katlist {

enum class Command { build, check, find, stat };

struct Arguments {
    Command command = Command::build;
    // Only those of the command are set.
    BuildOptions build;
    CheckOptions check;
    FindOptions find;
    StatOptions stat;
};

// Reads the command line. True: go on with `arguments`. False: end with *status, all output has been printed.
bool parseArguments(int argc, const char* const* argv, Arguments* arguments, int* status);

}  // namespace katlist

#endif
