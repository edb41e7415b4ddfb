#include "Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>

#include "UrlServer/Protocol.h"

namespace katc {

namespace {

constexpr const char* usage =
    "Usage: katc [-s SOCKET] [-r] [--] URL...\n"
    "       katc [-s SOCKET] [-r] -\n"
    "       katc [-s SOCKET] ctl REQUEST\n";

constexpr const char* footer =
    "Of each URL katc prints a line: the URL, a tab, known or unknown, a tab, and the\n"
    "category numbers with commas between. - asks for the URLs on standard input, one\n"
    "a line; -- stands before a URL that begins with - or is the word ctl.\n"
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

// An operand of a control request: the number's bytes in the machine's order.
std::string operand(std::uint32_t number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

std::string operand(const std::string& text) {
    std::uint32_t number = 0;
    parseUnsigned(text, &number);
    return operand(number);
}

std::uint32_t numberOf(const std::string& level) {
    return static_cast<std::uint32_t>(std::find(levels.begin(), levels.end(), level) - levels.begin());
}

// The requests below "ctl". What each stores goes on living in `body`.
void addRequests(CLI::App* ctl, std::string* body) {
    const auto add = [ctl](const char* name, const char* description) {
        return ctl->add_subcommand(name, description)->fallthrough();
    };
    auto* const level = add("log_level", "Set the message level: info, error, warning or debug");
    auto* const levelWord = level->add_option("LEVEL", "info, error, warning or debug");
    levelWord->required()->transform(CLI::IsMember(levels, CLI::ignore_case))->type_name("");
    level->callback(
        [=] { *body = KATD_SPACE::CONTROL_LOG_LEVEL + operand(numberOf(levelWord->as<std::string>())); });

    auto* const timeout = add("timeout",
                              "Set how often (TIMES) and after how many milliseconds (MS) an Unknown\n"
                              "is asked again by -r; 0 milliseconds end all further changes");
    auto* const times = timeout->add_option("TIMES", "repeated attempts, 0 to 4294967295");
    auto* const pause = timeout->add_option("MS", "pause before each, 0 to 4294967295 milliseconds");
    for (auto* const number : {times, pause})
        number->required()->check(unsignedNumber)->type_name("");
    timeout->callback([=] {
        *body = KATD_SPACE::CONTROL_TIMEOUT + operand(times->as<std::string>()) +
                operand(pause->as<std::string>());
    });

    add("save_cache", "Save what the engine has learnt to the cache file")->callback([body] {
        *body = KATD_SPACE::CONTROL_SAVE_CACHE;
    });
    add("urls_stat", "Write the number of URLs asked and matched to the log")->callback([body] {
        *body = KATD_SPACE::CONTROL_URLS_STAT;
    });
    add("reload", "Read the lists of URLs and domains again")->callback([body] {
        *body = KATD_SPACE::CONTROL_RELOAD;
    });
}

// CLI11 keeps what it knows no option for as well: a URL, or an option that does not exist.
void takeUrls(const std::vector<std::string>& unknown, std::vector<std::string>* urls) {
    for (const std::string& word : unknown) {
        if (word.size() > 1 && word[0] == '-') {
            throw CLI::ParseError(
                "there is no option " + word + "; a URL that begins with - stands behind --", badUsage);
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
    auto* const retry = app.add_flag("-r,--retry", arguments->withRetry,
                                     "Have katd ask the engine again while it answers Unknown");
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
        if (isControl && arguments->control.empty()) {
            throw CLI::ParseError("ctl needs a request: log_level, timeout, save_cache, urls_stat or reload",
                                  badUsage);
        }
        if (isControl && !arguments->urls.empty()) {
            throw CLI::ParseError("ctl takes one request and no URL, but there is " + arguments->urls.front(),
                                  badUsage);
        }
        if (isControl && retry->count() != 0) throw CLI::ParseError("-r goes with URLs alone", badUsage);
        if (!isControl && arguments->urls.empty()) throw CLI::ParseError("no URL is given", badUsage);
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
