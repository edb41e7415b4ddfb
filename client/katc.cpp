// katc: asks the daemon for the categories of URLs, says how it comes to them, sends it control requests, and
// answers a proxy's questions.
#include <csignal>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "Arguments.h"
#include "ProcessStart.h"
#include "QueryRunner.h"
#include "ResultPrinter.h"
#include "SocketPath.h"
#include "Why.h"
#include "helper/Helper.h"
#include "katclient.h"
#include "tools/CategoryNames.h"

namespace {

constexpr unsigned defaultLostMs = 30000;  // a restart of the daemon with large lists

katc::ExitStatus sendControl(katclient* client, const katc::ControlRequest& request) {
    const int status = request(client);
    if (status == KATCLIENT_OK) return katc::answered;
    katc::report(std::string("no reply to the request, ") + katclient_message(client));
    return status == KATCLIENT_NO_DAEMON ? katc::noDaemon : katc::unanswered;
}

katc::ExitStatus run(int argc, const char* const* argv) {
    katc::Arguments arguments;
    katc::ExitStatus exitStatus = katc::answered;
    if (!katc::parseArguments(argc, argv, &arguments, &exitStatus)) return exitStatus;
    tools::CategoryNames names;
    std::string problem;
    if ((!arguments.namesFile.empty() &&
         names.read(arguments.namesFile, &problem) != tools::CategoryNames::Status::ok) ||
        (arguments.socket.empty() && !katc::findSocket(&arguments.socket, &problem))) {
        katc::report(problem);
        return katc::badUsage;
    }

    katclient* opened = nullptr;
    const int status = katclient_open(arguments.socket.c_str(), &opened);
    const std::unique_ptr<katclient, void (*)(katclient*)> client(opened, katclient_close);
    if (status != KATCLIENT_OK) {
        katc::report(katc::openProblem(status, arguments.socket));
        return status == KATCLIENT_NO_MEMORY ? katc::unanswered : katc::badUsage;
    }
    katclient_set_limits(opened, arguments.waitMs.value_or(0), arguments.query.answerMs);
    if (arguments.control) return sendControl(opened, arguments.control);
    katc::ResultPrinter printer(arguments.json, arguments.namesFile.empty() ? nullptr : &names);
    arguments.query.lostMs = arguments.waitMs.value_or(defaultLostMs);
    return katc::QueryRunner(opened, &printer, arguments.query).askAll(arguments.urls);
}

}  // namespace

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) return katc::unanswered;
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (argc > 1 && std::strcmp(argv[1], "helper") == 0) return katc::helperMain(argc - 1, argv + 1);
        if (argc > 1 && std::strcmp(argv[1], "why") == 0) return katc::whyMain(argc - 1, argv + 1);
        return run(argc, argv);
    } catch (const std::exception& e) {
        katc::report(std::string(e.what()) + ": free some memory and ask again");
        return katc::unanswered;
    }
}
