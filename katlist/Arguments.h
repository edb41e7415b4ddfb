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
    // Those of the command are filled.
    BuildOptions build;
    CheckOptions check;
    FindOptions find;
    StatOptions stat;
};

// Reads the command line. True: katlist goes on with `arguments`. False: it ends with `status`, everything
// having been printed: help or version on standard output, what is wrong on standard error.
bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status);

}  // namespace katlist

#endif
