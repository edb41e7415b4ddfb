// katcatalog: makes, changes and examines the catalogues of katd's engine.
#include <unistd.h>

#include <csignal>

#include "Arguments.h"
#include "ProcessStart.h"
#include "Push.h"
#include "Read.h"
#include "Write.h"
#include "catalog/Guard.h"
#include "catalog/Writer.h"
#include "listreader/Console.h"

namespace {

// LMDB trusts a catalogue's pages, and may read outside the mapping if they are damaged.
void onFault(int) {
    constexpr char text[] =
        "katcatalog: the catalogue is damaged, or was cut while it was read; recreate it with "
        "katcatalog import\n";
    const ssize_t ignored = write(STDERR_FILENO, text, sizeof text - 1);
    static_cast<void>(ignored);
    _exit(listreader::failed);
}

listreader::ExitStatus run(const katcatalog::Arguments& arguments) try {
    using katcatalog::Command;
    switch (arguments.command) {
        case Command::import:
            katcatalog::import(arguments);
            break;
        case Command::update:
            katcatalog::update(arguments);
            break;
        case Command::sync:
            katcatalog::sync(arguments);
            break;
        case Command::push:
            katcatalog::push(arguments);
            break;
        case Command::find:
            return katcatalog::find(arguments);
        case Command::stat:
            katcatalog::stat(arguments);
            break;
        case Command::check:
            return katcatalog::check(arguments);
        case Command::dump:
            katcatalog::dump(arguments);
            break;
    }
    return listreader::fine;
} catch (const catalog::Update::Failure& failure) {
    throw listreader::Failure(listreader::failed, failure.text);
}

}  // namespace

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) return listreader::failed;
    listreader::setProgramName("katcatalog");
    std::signal(SIGSEGV, onFault);
    std::signal(SIGBUS, onFault);
    catalog::installFaultGuard();
    return listreader::runProgram("memory is short: give it more", [&] {
        katcatalog::Arguments arguments;
        int status = listreader::fine;
        return katcatalog::parseArguments(argc, argv, &arguments, &status) ? run(arguments) : status;
    });
}
