// katc: asks the daemon for the categories of URLs, sends it control requests, and answers a proxy's
// questions.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

#include "Answers.h"
#include "Arguments.h"
#include "Helper.h"
#include "ProcessStart.h"
#include "Questions.h"
#include "Settings.h"
#include "katclient.h"
#include "tools/CategoryNames.h"

namespace {

constexpr unsigned defaultLostMs = 30000;  // a restart of the daemon, with large lists

katc::ExitStatus run(int argc, const char* const* argv) {
    katc::Arguments arguments;
    katc::ExitStatus exitStatus = katc::answered;
    if (!katc::parseArguments(argc, argv, &arguments, &exitStatus)) return exitStatus;
    tools::CategoryNames names;
    std::string problem;
    if (!arguments.namesFile.empty() &&
        names.read(arguments.namesFile, &problem) != tools::CategoryNames::Status::ok) {
        katc::tell(problem);
        return katc::badUsage;
    }
    if (arguments.socket.empty() && !katc::socketFromSettings(&arguments.socket)) return katc::badUsage;

    katclient* opened = nullptr;
    const int status = katclient_open(arguments.socket.c_str(), &opened);
    const std::unique_ptr<katclient, void (*)(katclient*)> client(opened, katclient_close);
    if (status != KATCLIENT_OK) {
        katc::tell(status == KATCLIENT_NO_MEMORY ? "there is too little memory: free some"
                                                 : "the path " + arguments.socket +
                                                       " cannot be a socket's: name katd's socket with -s");
        return status == KATCLIENT_NO_MEMORY ? katc::unanswered : katc::badUsage;
    }
    katclient_set_limits(opened, arguments.waitMs.value_or(0), arguments.answerMs);
    if (arguments.control) return katc::sendControl(opened, arguments.control);
    katc::Answers answers(arguments.json, arguments.namesFile.empty() ? nullptr : &names);
    katc::Questions questions(opened, &answers, arguments.withRetry, arguments.waitMs.value_or(defaultLostMs),
                              arguments.answerMs);
    return questions.askAll(arguments.urls);
}

}  // namespace

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) return katc::unanswered;
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (argc > 1 && std::strcmp(argv[1], "helper") == 0) return katc::helperMain(argc - 1, argv + 1);
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "katc: %s: free some memory and ask again.\n", e.what());
        return katc::unanswered;
    }
}
