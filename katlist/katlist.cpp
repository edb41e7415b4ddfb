// katlist: makes and examines the list files of katd.
#include "Arguments.h"
#include "ProcessStart.h"
#include "Shared.h"

namespace {

katlist::ExitStatus run(const katlist::Arguments& arguments) {
    switch (arguments.command) {
        case katlist::Command::build:
            katlist::build(arguments.build);
            return katlist::fine;
        case katlist::Command::check:
            return katlist::check(arguments.check);
        case katlist::Command::find:
            return katlist::find(arguments.find);
        case katlist::Command::stat:
            katlist::stat(arguments.stat);
            return katlist::fine;
    }
    return katlist::badUsage;
}

}  // namespace

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) return katlist::failed;
    listreader::setProgramName("katlist");
    return listreader::runProgram("out of memory: build from fewer inputs at once", [&] {
        katlist::Arguments arguments;
        int status = katlist::fine;
        return katlist::parseArguments(argc, argv, &arguments, &status) ? run(arguments) : status;
    });
}
