// katd-http: answers over HTTP what katd knows: to web servers and proxies that ask before they serve a
// request, to monitoring, and to people.
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "HttpServer.h"
#include "KatdConf/ConfReader.h"
#include "Listener.h"
#include "ProcessStart.h"
#include "Service.h"
#include "Settings.h"
#include "tools/Options.h"
#include "tools/Text.h"

namespace {

constexpr char program[] = "katd-http";
constexpr char settingsFile[] = "conf/katd-http.ini";  // below katd's home

enum ExitStatus { ended = 0, failed = 1, badUsage = 2 };

struct Arguments {
    std::string settings;
    bool onlyChecks = false;
};

// Listening sockets with what each of them serves.
struct Doors {
    std::vector<gateway::Listener> listeners;
    std::vector<gateway::HttpServer::Handler> handlers;
};

Doors openDoors(const gateway::Settings& settings, gateway::Service* service) {
    const auto all = [service](const httplib::Request& request, httplib::Response& response) {
        service->answerAll(request, response);
    };
    const auto ofPublic = [service](const httplib::Request& request, httplib::Response& response) {
        service->answerPublic(request, response);
    };
    const auto ofAdministrator = [service](const httplib::Request& request, httplib::Response& response) {
        service->answerAdministrator(request, response);
    };
    Doors doors;
    const std::vector<gateway::PassedSocket> passed = gateway::takePassedSockets();
    bool hasAdministrator = !settings.adminListen.empty();
    for (const gateway::PassedSocket& one : passed)
        hasAdministrator = hasAdministrator || one.name == "admin";
    for (const gateway::PassedSocket& one : passed) {
        doors.listeners.emplace_back(one.descriptor);
        if (one.name == "admin")
            doors.handlers.emplace_back(ofAdministrator);
        else if (hasAdministrator)
            doors.handlers.emplace_back(ofPublic);
        else
            doors.handlers.emplace_back(all);
    }
    // Sockets of systemd replace the addresses of the settings.
    if (!passed.empty()) return doors;
    for (const std::string& address : settings.listen) {
        doors.listeners.emplace_back(address);
        if (hasAdministrator)
            doors.handlers.emplace_back(ofPublic);
        else
            doors.handlers.emplace_back(all);
    }
    for (const std::string& address : settings.adminListen) {
        doors.listeners.emplace_back(address);
        doors.handlers.emplace_back(ofAdministrator);
    }
    return doors;
}

// Waits for signals in a thread of its own: SIGHUP reads the policies again; SIGINT and SIGTERM close the
// descriptor, which ends the server.
void handleSignals(const sigset_t& signals, const std::string& path, const std::string& home,
                   gateway::Service* service, int stopDescriptor) {
    for (;;) {
        int signal = 0;
        if (sigwait(&signals, &signal) != 0) continue;
        if (signal != SIGHUP) break;
        try {
            service->setRules(gateway::readRules(path, home));
            std::fprintf(stderr, "%s: the policies were read again.\n", program);
        } catch (const std::exception& e) {
            tools::printError(program, std::string(e.what()) + "; the policies stay as they were");
        }
    }
    close(stopDescriptor);
}

int run(const Arguments& arguments) {
    const char* const variable = std::getenv("KATD_DIR");
    const std::string home = KATD_SPACE::ConfReader::homePathOf(variable);
    if (home.empty() && arguments.settings.empty()) {
        tools::printError(program,
                          "set KATD_DIR to katd's home directory, or name the settings with --settings");
        return badUsage;
    }
    const std::string path = arguments.settings.empty() ? home + settingsFile : arguments.settings;
    const gateway::Settings settings = gateway::readSettings(path, home);
    gateway::Rules rules = gateway::readRules(path, home);
    if (arguments.onlyChecks) {
        std::printf("%s: %zu policies, no mistake found\n", path.c_str(), rules.policies.size());
        return ended;
    }

    // Blocked in every thread, and so left to the one that waits for them.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    gateway::Service service(settings, std::move(rules));
    Doors doors = openDoors(settings, &service);
    for (const gateway::Listener& listener : doors.listeners)
        std::fprintf(stderr, "%s: listening on %s\n", program, listener.name().c_str());
    int stop[2];
    if (pipe2(stop, O_CLOEXEC) != 0) throw std::runtime_error("too many files are open");
    std::thread(handleSignals, signals, path, home, &service, stop[1]).detach();
    gateway::HttpServer server(settings.limits, std::move(doors.listeners), std::move(doors.handlers));
    server.run(stop[0]);
    // Threads of connections that did not end in time may still use the objects of this function.
    std::fflush(nullptr);
    _exit(ended);
}

}  // namespace

int main(int argc, char** argv) {
    if (!QOR_SPACE::prepareProcess()) return failed;
    mallopt(M_ARENA_MAX, 2);  // one for each thread would keep the memory of its largest request
    Arguments arguments;
    tools::CommandLine commandLine(program, KATD_HTTP_VERSION,
                                   "Answers over HTTP which categories katd knows of URLs.");
    commandLine.text("-s,--settings", "FILE", &arguments.settings,
                     "settings to read; without it conf/katd-http.ini below KATD_DIR");
    commandLine.flag("--check", &arguments.onlyChecks, "read the settings, say what is wrong, and end");
    int status = ended;
    if (!commandLine.parse(argc, argv, &status)) return status;
    try {
        return run(arguments);
    } catch (const gateway::SettingsError& e) {
        tools::printError(program, e.what());
        return badUsage;
    } catch (const std::exception& e) {
        tools::printError(program, e.what());
        return failed;
    }
}
