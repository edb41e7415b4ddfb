#include "Arguments.h"

#include <algorithm>
#include <cstdint>

#include "tools/Options.h"

namespace katc {

namespace {

constexpr const char* usage =
    "Usage: katc [OPTION...] [--] URL...\n"
    "       katc [OPTION...] -\n"
    "       katc [-s SOCKET] [--timeout SECONDS] [--wait SECONDS] ctl REQUEST\n"
    "       katc why [--categories FILE] URL...\n"
    "       katc helper --help    (answers the proxy squid)\n";

constexpr const char* footer =
    "For each URL katc prints a line: the URL, a tab, known or unknown, a tab, and the\n"
    "category numbers separated by commas. - reads URLs from standard input, one per\n"
    "line. Write -- before a URL that begins with - or is the word ctl, helper or why.\n"
    "\n"
    "Without --wait, katc ends at once if no daemon runs at the start, but waits 30\n"
    "seconds for one that ends later, so that a restart loses no question.\n"
    "\n"
    "Exit status: 0 every URL, or the request, got its reply (unknown is a reply);\n"
    "1 one did not; 2 bad usage; 3 no daemon answers.";

const std::vector<std::string> levels = {"info", "error", "warning", "debug"};  // by the daemon's numbers

// Operands of the requests.
struct Operands {
    std::string level;
    std::uint32_t times = 0;
    std::uint32_t intervalMs = 0;
};

// The requests below "ctl". Each stores itself in *request. `operands` must outlive the parsing.
void addRequests(tools::Command* ctl, Operands* operands, ControlRequest* request) {
    auto& level = ctl->command("log_level", "Set the message level: info, error, warning or debug");
    level.word("LEVEL", levels, &operands->level, "info, error, warning or debug").required();
    level.check([=] {
        const auto index = std::find(levels.begin(), levels.end(), operands->level) - levels.begin();
        *request = [number = static_cast<katclient_level>(index)](katclient* client) {
            return katclient_log_level(client, number);
        };
    });

    auto& timeout = ctl->command("timeout",
                                 "Set how often (TIMES) and after how many milliseconds (MS) katd asks\n"
                                 "again for an Unknown with -r; 0 milliseconds prevent further changes");
    timeout.number("TIMES", 0, UINT32_MAX, &operands->times, "further attempts, 0 to 4294967295").required();
    timeout.number("MS", 0, UINT32_MAX, &operands->intervalMs, "pause before each, 0 to 4294967295 ms")
        .required();
    timeout.check([=] {
        *request = [copy = *operands](katclient* client) {
            return katclient_retry_times(client, copy.times, copy.intervalMs);
        };
    });

    const auto add = [=](const char* name, const char* help, int (*function)(katclient*)) {
        ctl->command(name, help).check([=] { *request = function; });
    };
    add("save_cache", "Save the engine's cache to the cache file", katclient_save_cache);
    add("urls_stat", "Write the numbers of URLs asked and matched to the log", katclient_urls_stat);
    add("reload", "Read the lists of URLs and domains again", katclient_reload);
}

}  // namespace

bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status) {
    tools::CommandLine line("katc", KATC_VERSION,
                            "Asks katd for the categories of URLs, or changes how katd runs.");
    line.setUsage(usage);
    line.setFooter(footer);
    line.text("-s,--socket", "SOCKET", &arguments->socket,
              "katd's socket; default: the settings in KATD_DIR name it");
    const auto asHelper = line.flag("--as-helper", &arguments->query.asHelper,
                                    "Ask as katc helper acl does: without port, user information and\n"
                                    "dots at the end of the host");
    const auto keepPort =
        line.flag("--keep-port", &arguments->query.keepsPort, "With --as-helper: ask for the port too");
    line.require(keepPort, asHelper);
    const tools::Option ofUrls[] = {
        asHelper, keepPort,
        line.flag("-r,--retry", &arguments->query.withRetry,
                  "Have katd ask the engine again while it answers Unknown"),
        line.flag("--json", &arguments->json,
                  "Print each answer as a JSON object with url, known, categories and\n"
                  "names, or with url and error"),
        line.text("--categories", "FILE", &arguments->namesFile,
                  "Print categories by name: a file of lines name = number")};
    line.seconds("--timeout", &arguments->query.answerMs,
                 "Wait at most this long for an answer; default 0, no limit");
    unsigned waitMs = 0;
    const auto wait =
        line.seconds("--wait", &waitMs, "Try this long to reach katd, at the start and after it ended");
    std::vector<std::string> afterMark;
    line.operands("", &arguments->urls, "", &afterMark);
    auto& ctl = line.command("ctl", "Send a request; katd writes what came of it to its log");
    Operands operands;
    addRequests(&ctl, &operands, &arguments->control);

    ctl.requireCommand("ctl needs a request: log_level, timeout, save_cache, urls_stat or reload");

    line.check([&] {
        if (wait.isGiven()) arguments->waitMs = waitMs;
        std::vector<std::string>& urls = arguments->urls;
        if (std::find(urls.begin(), urls.end(), "helper") != urls.end()) {
            throw tools::UsageError(
                "helper is a command only as the first word: katc helper --help; a URL of that name goes "
                "after --");
        }
        urls.insert(urls.end(), afterMark.begin(), afterMark.end());
        if (!ctl.isChosen()) {
            if (urls.empty()) throw tools::UsageError("no URL is given");
            return;
        }
        for (const tools::Option& option : ofUrls) {
            if (option.isGiven()) throw tools::UsageError(option.name() + " has no effect with ctl");
        }
        if (!urls.empty())
            throw tools::UsageError("ctl takes one request and no URL, but there is " + urls.front());
    });
    int exitStatus = answered;
    if (line.parse(argc, argv, &exitStatus)) return true;
    *status = static_cast<ExitStatus>(exitStatus);
    return false;
}

}  // namespace katc
