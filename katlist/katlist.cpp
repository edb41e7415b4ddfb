// katlist: makes and examines the list files of katd.
#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>

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
    int status = katlist::fine;
    try {
        katlist::Arguments arguments;
        if (katlist::parseArguments(argc, argv, &arguments, &status)) status = run(arguments);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            katlist::tell(katlist::fileFailure("write to", "standard output", errno).what());
            status = katlist::failed;
        }
    } catch (const katlist::Failure& failure) {
        std::fflush(stdout);
        katlist::tell(failure.what());
        status = failure.status;
    } catch (const std::bad_alloc&) {
        katlist::tell("out of memory: build from fewer inputs at once");
        status = katlist::failed;
    } catch (const std::exception& e) {
        katlist::tell(e.what());
        status = katlist::failed;
    }
    return status;
}
