// katcatalog: makes, changes and examines the catalogues of katd's engine.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

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

listreader::ExitStatus run(const katcatalog::Arguments& arguments) {
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
}

}  // namespace

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) return listreader::failed;
    listreader::setProgramName("katcatalog");
    std::signal(SIGSEGV, onFault);
    std::signal(SIGBUS, onFault);
    catalog::installFaultGuard();
    int status = listreader::fine;
    try {
        katcatalog::Arguments arguments;
        if (katcatalog::parseArguments(argc, argv, &arguments, &status)) status = run(arguments);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            listreader::tell(listreader::fileFailure("write to", "standard output", errno).what());
            status = listreader::failed;
        }
    } catch (const listreader::Failure& failure) {
        std::fflush(stdout);
        listreader::tell(failure.what());
        status = failure.status;
    } catch (const catalog::Update::Failure& failure) {
        std::fflush(stdout);
        listreader::tell(failure.text);
        status = listreader::failed;
    } catch (const std::bad_alloc&) {
        listreader::tell("memory is short: give it more");
        status = listreader::failed;
    } catch (const std::exception& e) {
        listreader::tell(e.what());
        status = listreader::failed;
    }
    return status;
}
