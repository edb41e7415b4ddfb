#include "Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>

namespace katc {

namespace {

constexpr const char* usage =
    "Usage: katc [OPTION...] [--] URL...\n"
    "       katc [OPTION...] -\n"
    "       katc [-s SOCKET] [--timeout SECONDS] [--wait SECONDS] ctl REQUEST\n"
    "       katc helper --help    (answers the proxy squid)\n";

constexpr const char* footer =
    "Of each URL katc prints a line: the URL, a tab, known or unknown, a tab, and the\n"
    "category numbers with commas between. - asks for the URLs on standard input, one\n"
    "a line; -- stands before a URL that begins with - or is the word ctl or helper.\n"
    "\n"
    "Without --wait a daemon that is missing at the start is told at once, while one\n"
    "that ends later is waited for 30 seconds; no question is lost by its restart.\n"
    "\n"
    "Exit status: 0 every URL, or the request, got its reply (unknown is one);\n"
    "1 one did not; 2 bad usage; 3 no daemon answers.";

class HelpText : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        return app->get_parent() == nullptr ? usage : CLI::Formatter::make_usage(app, name);
    }
};

const std::vector<std::string> levels = {"info", "error", "warning", "debug"};  // by the daemon's numbers

// Digits alone: signs, hexadecimal and octal numbers are refused.
bool parseUnsigned(const std::string& text, std::uint32_t* number) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *number);
    return result.ec == std::errc() && result.ptr == end;
}

const CLI::Validator unsignedNumber(
    [](const std::string& text) {
        std::uint32_t number = 0;
        return parseUnsigned(text, &number) ? std::string()
                                            : "must be a number from 0 to 4294967295, not " + text;
    },
    "");

std::uint32_t toUnsigned(const std::string& text) {
    std::uint32_t number = 0;
    parseUnsigned(text, &number);
    return number;
}

constexpr double longestSec = 4000000;  // 46 days: as milliseconds it is a number of 32 bits

// Digits with at most one point among them.
bool parseSeconds(const std::string& text, unsigned* milliseconds) {
    double seconds = -1;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, seconds, std::chars_format::fixed);
    if (result.ec != std::errc() || result.ptr != end || !(seconds >= 0 && seconds <= longestSec))
        return false;
    // Something is never rounded to nothing, which would mean no limit.
    *milliseconds = seconds > 0 ? std::max(1U, static_cast<unsigned>(std::lround(seconds * 1000))) : 0;
    return true;
}

const CLI::Validator secondsNumber(
    [](const std::string& text) {
        unsigned ignored = 0;
        return parseSeconds(text, &ignored) ? std::string()
                                            : "must be a number of seconds from 0 to 4000000, not " + text;
    },
    "");

unsigned toMilliseconds(const std::string& text) {
    unsigned milliseconds = 0;
    parseSeconds(text, &milliseconds);
    return milliseconds;
}

std::uint32_t numberOf(const std::string& level) {
    return static_cast<std::uint32_t>(std::find(levels.begin(), levels.end(), level) - levels.begin());
}

// The requests below "ctl". What each stores goes on living in `request`.
void addRequests(CLI::App* ctl, std::function<int(katclient*)>* request) {
    const auto add = [ctl](const char* name, const char* description) {
        return ctl->add_subcommand(name, description)->fallthrough();
    };
    auto* const level = add("log_level", "Set the message level: info, error, warning or debug");
    auto* const levelWord = level->add_option("LEVEL", "info, error, warning or debug");
    levelWord->required()->transform(CLI::IsMember(levels, CLI::ignore_case))->type_name("");
    level->callback([=] {
        const auto number = static_cast<katclient_level>(numberOf(levelWord->as<std::string>()));
        *request = [number](katclient* client) { return katclient_log_level(client, number); };
    });

    auto* const timeout = add("timeout",
                              "Set how often (TIMES) and after how many milliseconds (MS) an Unknown\n"
                              "is asked again by -r; 0 milliseconds end all further changes");
    auto* const times = timeout->add_option("TIMES", "repeated attempts, 0 to 4294967295");
    auto* const pause = timeout->add_option("MS", "pause before each, 0 to 4294967295 milliseconds");
    for (auto* const number : {times, pause})
        number->required()->check(unsignedNumber)->type_name("");
    timeout->callback([=] {
        *request = [count = toUnsigned(times->as<std::string>()),
                    interval = toUnsigned(pause->as<std::string>())](katclient* client) {
            return katclient_retry_times(client, count, interval);
        };
    });

    add("save_cache", "Save what the engine has learnt to the cache file")->callback([request] {
        *request = katclient_save_cache;
    });
    add("urls_stat", "Write the number of URLs asked and matched to the log")->callback([request] {
        *request = katclient_urls_stat;
    });
    add("reload", "Read the lists of URLs and domains again")->callback([request] {
        *request = katclient_reload;
    });
}

// CLI11 keeps what it knows no option for as well: a URL, or an option that does not exist.
void takeUrls(const std::vector<std::string>& unknown, std::vector<std::string>* urls) {
    for (const std::string& word : unknown) {
        if (word.size() > 1 && word[0] == '-') {
            throw CLI::ParseError(
                "there is no option " + word + "; a URL that begins with - stands behind --", badUsage);
        }
        if (word == "helper") {
            throw CLI::ParseError(
                "helper is a command when it stands first: katc helper --help; a URL of that name stands "
                "behind --",
                badUsage);
        }
        urls->push_back(word);
    }
}

}  // namespace

bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status) {
    CLI::App app("Asks katd for the categories of URLs, or changes how katd runs.", "katc");
    app.formatter(std::make_shared<HelpText>());
    app.allow_extras();
    app.set_version_flag("--version", std::string("katc ") + KATC_VERSION, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.add_option("-s,--socket", arguments->socket,
                   "katd's socket; without it the settings in KATD_DIR name it")
        ->type_name("SOCKET");
    CLI::Option* const ofUrls[] = {
        app.add_flag("-r,--retry", arguments->withRetry,
                     "Have katd ask the engine again while it answers Unknown"),
        app.add_flag("--json", arguments->json,
                     "Print each answer as a JSON object with url, known, categories and\n"
                     "names, or with url and error"),
        app.add_option("--names", arguments->namesFile,
                       "Print categories by their names: a file of lines name = number")
            ->type_name("FILE")};
    auto* const timeout =
        app.add_option("--timeout", "Wait at most this long for an answer; 0: for ever (default)");
    auto* const wait =
        app.add_option("--wait", "Try this long to reach katd, at the start and when it has ended");
    for (auto* const option : {timeout, wait})
        option->check(secondsNumber)->type_name("SECONDS");
    auto* const ctl = app.add_subcommand("ctl", "Send a request; what comes of it stands in katd's log");
    ctl->require_subcommand(0, 1)->fallthrough();
    addRequests(ctl, &arguments->control);
    app.footer(footer);  // last: a subcommand takes over the footer that it finds

    // What stands behind "--" is a URL whatever it looks like: CLI11 would still take the word ctl for the
    // subcommand.
    const char* const* const end = argv + argc;
    const char* const* const mark = std::find(argv + 1, end, std::string("--"));
    std::vector<std::string> words(std::make_reverse_iterator(mark), std::make_reverse_iterator(argv + 1));
    try {
        app.parse(std::move(words));
        takeUrls(app.remaining(), &arguments->urls);
        if (mark != end) arguments->urls.insert(arguments->urls.end(), mark + 1, end);
        const bool isControl = ctl->parsed();
        if (isControl && !arguments->control) {
            throw CLI::ParseError("ctl needs a request: log_level, timeout, save_cache, urls_stat or reload",
                                  badUsage);
        }
        if (isControl && !arguments->urls.empty()) {
            throw CLI::ParseError("ctl takes one request and no URL, but there is " + arguments->urls.front(),
                                  badUsage);
        }
        for (const CLI::Option* const option : ofUrls) {
            if (isControl && option->count() != 0)
                throw CLI::ParseError(option->get_name() + " goes with URLs alone", badUsage);
        }
        if (!isControl && arguments->urls.empty()) throw CLI::ParseError("no URL is given", badUsage);
        if (timeout->count() != 0) arguments->answerMs = toMilliseconds(timeout->as<std::string>());
        if (wait->count() != 0) arguments->waitMs = toMilliseconds(wait->as<std::string>());
        return true;
    } catch (const CLI::Success& e) {
        *status = app.exit(e) == 0 ? answered : badUsage;
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "katc: %s.\nkatc --help tells more.\n", e.what());
        *status = badUsage;
    }
    return false;
}

}  // namespace katc
