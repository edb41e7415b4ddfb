#include "Options.h"

#include <algorithm>
#include <cstdlib>

#include "tools/Options.h"

namespace bench {

namespace {

class BenchCommandLine : public tools::CommandLine {
public:
    BenchCommandLine(const char* name, const char* description)
        : CommandLine(name, BENCH_VERSION, description) {}

    void parseOrExit(int argc, const char* const* argv, const char* footer) {
        setFooter(std::string(footer) + "\nExit status: 0 success, 1 failure, 2 bad usage.");
        int status = 0;
        if (!parse(argc, argv, &status)) std::exit(status);
    }
};

constexpr std::uint64_t maxItems = 10000000;

}  // namespace

void parse(int argc, const char* const* argv, ServerOptions* options) {
    BenchCommandLine line("ideal_server",
                          "Makes the system calls of an answer from a list and nothing else.");
    line.operand("SOCKET", &options->socket, "Path of the socket to serve on").required();
    line.number("--reads", 1, 2, &options->reads, "2: length, then message (the default); 1: one for both");
    line.number("--writes", 1, 2, &options->writes,
                "2: header, then category (the default); 1: one for both");
    line.flag("--engine", &options->asksEngine,
              "Ask the engine for each answer, with one read and one write");
    line.parseOrExit(argc, argv, "One thread for each connection. Serves until it is killed.");
}

void parse(int argc, const char* const* argv, ClientOptions* options) {
    BenchCommandLine line(
        "load_client",
        "Asks as fast as the server answers, verifies every answer, and prints a line of JSON.");
    unsigned milliseconds = static_cast<unsigned>(options->seconds * 1000);
    unsigned warmUpMilliseconds = static_cast<unsigned>(options->warmUp * 1000);
    // The words after --helper are the helper's command with its own options.
    const char* const* end = argv + argc;
    const char* const* split = std::find(argv, end, std::string("--helper"));
    if (split != end) options->helper.assign(split + 1, end);
    line.operand("SOCKET", &options->socket, "Path of the server's socket; none with --helper");
    line.text("--questions", "FILE", &options->questions, "File that generate_list made").required();
    line.number("--connections", 0, 10000, &options->connections, "Busy connections, 1 by default");
    line.number("--window", 1, 1024, &options->window, "Requests in flight on each connection, 1 by default");
    line.number(
        "--idle", 0, 1000000, &options->idle,
        "Hold this many more connections, or as many as possible, each having asked once; a first line of "
        "JSON has their number");
    line.seconds("--seconds", &milliseconds, "Duration, 1 by default; SIGTERM ends it sooner");
    line.seconds("--warm-up", &warmUpMilliseconds, "Seconds before the measurement, 0.1 by default");
    line.number("--count", 0, UINT64_MAX, &options->count, "End after this many answers, if that is sooner");
    line.flag("--reconnect", &options->reconnects, "A connection for each request");
    std::string helper;  // taken above
    line.text("--helper", "COMMAND", &helper,
              "Ask a helper of squid, in lines with channel-IDs; COMMAND is the rest of the line");
    line.check([&] {
        if (options->helper.empty() == options->socket.empty() || (split != end && options->helper.empty()))
            throw tools::UsageError("give a SOCKET, or --helper with a command");
        if (options->reconnects && (options->connections != 1 || options->window != 1))
            throw tools::UsageError("--reconnect takes one connection and a window of 1");
    });
    line.parseOrExit(static_cast<int>(split - argv), argv,
                     "A wrong answer, or none in 30 seconds, is a failure.");
    options->seconds = milliseconds / 1000.0;
    options->warmUp = warmUpMilliseconds / 1000.0;
}

void parse(int argc, const char* const* argv, ListOptions* options) {
    BenchCommandLine line("generate_list",
                          "Makes a list for katd, the same for the same options, and questions for it.");
    line.number("--items", 1, maxItems, &options->items, "Items of the list, 1000 by default");
    line.number("--seed", 0, UINT64_MAX, &options->seed, "Another number gives other items; 1 by default");
    line.exclude(line.flag("--domains", &options->areDomains, "Host names"),
                 line.flag("--urls", "Hosts with the beginning of a path (the default)"));
    line.text("-o,--output", "FILE", &options->output, "The list to write").required();
    line.text("--questions", "FILE", &options->questions, "Write questions for it to this file");
    line.number("--question-count", 1, maxItems, &options->questionCount, "How many, 100000 by default");
    line.number("--hits", 0, 100, &options->hitPercent,
                "Per cent of the questions that the list answers, 100 by default");
    line.parseOrExit(argc, argv, "A question is a line: the category, or - for none, a tab, the URL.");
}

void parse(int argc, const char* const* argv, HelperOptions* options) {
    BenchCommandLine line("ideal_helper",
                          "A helper of squid that answers from lists of its own as katc helper acl does.");
    line.texts("--list", "FILE", &options->lists, "List of katd's; may be given twice: prefixes, then hosts")
        .required();
    line.flag("--gather", &options->gathers, "One write for the answers to all lines that one read brought");
    line.check([&] {
        if (options->lists.size() > 2) throw tools::UsageError("--list may be given twice");
    });
    line.parseOrExit(argc, argv, "Lines with channel-IDs on standard input, answers on standard output.");
}

}  // namespace bench
