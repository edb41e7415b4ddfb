#include "Options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>

namespace bench {

namespace {

void finish(CLI::App* app, int argc, const char* const* argv, const char* footer) {
    app->footer(std::string(footer) + "\nExit status: 0 success, 1 failure, 2 bad usage.");
    app->set_version_flag("--version", std::string(app->get_name()) + " " + BENCH_VERSION);
    try {
        app->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::exit(app->exit(error) == 0 ? 0 : 2);
    }
}

}  // namespace

void parse(int argc, const char* const* argv, ServerOptions* options) {
    CLI::App app("Makes the system calls of an answer from a list and nothing else.", "ideal_server");
    app.add_option("SOCKET", options->socket, "Path of the socket to serve on")->required();
    app.add_option("--reads", options->reads, "2: length, then message; 1: what there is")
        ->check(CLI::Range(1, 2))
        ->capture_default_str();
    app.add_option("--writes", options->writes, "2: header, then category; 1: both")
        ->check(CLI::Range(1, 2))
        ->capture_default_str();
    app.add_flag("--engine", options->asksEngine,
                 "Asks the engine for each answer, with one read and one write");
    finish(&app, argc, argv, "One thread for each connection. Serves until it is killed.");
}

void parse(int argc, const char* const* argv, ClientOptions* options) {
    CLI::App app("Asks as fast as it is answered, verifies every answer, and prints a line of JSON.",
                 "load_client");
    app.add_option("SOCKET", options->socket, "Path of the server's socket; none with --helper");
    app.add_option("--questions", options->questions, "File that generate_list made")->required();
    app.add_option("--connections", options->connections, "Busy connections")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    app.add_option("--window", options->window, "Requests under way on each connection")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option(
           "--idle", options->idle,
           "Connections to hold beside them, each having asked once: as many as there can be, at most "
           "this number; a first line of JSON tells when they are there")
        ->check(CLI::Range(0, 1000000));
    app.add_option("--seconds", options->seconds, "How long; SIGTERM ends it sooner")->capture_default_str();
    app.add_option("--warm-up", options->warmUp, "Seconds that are not counted")->capture_default_str();
    app.add_option("--count", options->count, "Ends after so many answers, if that is sooner");
    app.add_flag("--reconnect", options->reconnects, "Connects for each request and closes");
    app.add_option(
           "--helper", options->helper,
           "Command of a helper of squid, to be asked in lines with channel-IDs; takes all that follows")
        ->expected(1, -1);
    // The command's own options are not ours.
    const char* const* end = argv + argc;
    const char* const* split = std::find(argv, end, std::string("--helper"));
    finish(&app, static_cast<int>(split - argv), argv,
           "A wrong answer, or none in 30 seconds, is a failure.");
    if (split != end) options->helper.assign(split + 1, end);
    const bool isHelper = !options->helper.empty();
    if (isHelper != options->socket.empty() || (split != end && !isHelper)) {
        std::fprintf(stderr, "load_client: give a SOCKET, or --helper with a command\n");
        std::exit(2);
    }
    if (options->reconnects && (options->connections != 1 || options->window != 1)) {
        std::fprintf(stderr, "load_client: --reconnect goes with one connection and a window of 1\n");
        std::exit(2);
    }
}

void parse(int argc, const char* const* argv, ListOptions* options) {
    CLI::App app("Makes a list for katd, the same for the same options, and questions for it.",
                 "generate_list");
    app.add_option("--items", options->items, "Items of the list")
        ->check(CLI::Range(1, 10000000))
        ->capture_default_str();
    app.add_option("--seed", options->seed, "Another number, other items")->capture_default_str();
    auto* const domains = app.add_flag("--domains", options->areDomains, "Host names");
    app.add_flag("--urls", "Hosts with the beginning of a path (the default)")->excludes(domains);
    app.add_option("-o,--output", options->output, "The list to write")->required();
    app.add_option("--questions", options->questions, "A file of questions to write beside it");
    app.add_option("--question-count", options->questionCount, "How many")
        ->check(CLI::Range(1, 10000000))
        ->capture_default_str();
    app.add_option("--hits", options->hitPercent, "Per cent of the questions that the list answers")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    finish(&app, argc, argv, "A question is a line: the category, or - for none, a tab, the URL.");
}

void parse(int argc, const char* const* argv, HelperOptions* options) {
    CLI::App app("A helper of squid that answers from lists of its own as katc helper acl does.",
                 "ideal_helper");
    app.add_option("--list", options->lists, "List of katd's; may be given twice: prefixes, then hosts")
        ->required()
        ->expected(1, 2);
    app.add_flag("--gather", options->gathers,
                 "One write for the answers to all lines that one read brought");
    finish(&app, argc, argv, "Lines with channel-IDs on standard input, answers on standard output.");
}

}  // namespace bench
