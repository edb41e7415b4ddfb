#include "HelperOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <vector>

#include "ExitStatus.h"

namespace katc {

namespace {

constexpr const char* usage =
    "Usage: katc helper acl [OPTION]...\n"
    "       katc helper rewrite --block LIST|--allow LIST --redirect URL [OPTION]...\n";

constexpr const char* footer =
    "Squid starts it: acl for external_acl_type, rewrite for url_rewrite_program.\n"
    "acl answers OK for a URL that has one of the categories of --block or --allow (of\n"
    "neither: any category), else ERR. rewrite redirects a URL that has one of --block,\n"
    "or has none of --allow. LIST holds numbers, ranges and names: 5,33-34,games.\n"
    "\n"
    "Exit status: 0 end of the input; 1 it cannot be read, or an answer not be written;\n"
    "2 bad usage. katc-helper(1) and docs/squid.md tell more.";

class HelpText : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App*, std::string) const override { return usage; }
};

[[noreturn]] void refuse(const std::string& sentence) {
    throw CLI::ParseError(sentence, badUsage);
}

// Words of the command line that need more than CLI11 to become options.
struct Words {
    std::string mode;
    std::vector<std::string> block, allow;
    std::string names, redirect, onFailure, onUnknown;
    std::string answerSec = "15", waitSec = "0";
};

bool parseNumber(const std::string& text, unsigned* number) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *number);
    return result.ec == std::errc() && result.ptr == end;
}

bool parseCategory(const std::string& text, unsigned* number) {
    return parseNumber(text, number) && *number <= 255;
}

// Adds "5", "33-34" or a name.
void addCategory(const std::string& word, const CategoryNames& names, std::bitset<256>* set) {
    unsigned first = 0;
    unsigned last = 0;
    const std::size_t dash = word.find('-');
    if (const auto named = names.numberOf(word)) {
        first = last = *named;
    } else if (parseCategory(word, &first)) {
        last = first;
    } else if (dash == word.npos || !parseCategory(word.substr(0, dash), &first) ||
               !parseCategory(word.substr(dash + 1), &last) || first > last) {
        refuse("there is no category " + word +
               ": write a number from 0 to 255, a range such as 33-34, or a name of the file of --names");
    }
    for (; first <= last; ++first)
        set->set(first);
}

void readCategories(const Words& words, HelperOptions* options) {
    std::string problem;
    if (!words.names.empty() && !options->names.read(words.names, &problem)) refuse(problem);
    if (!words.block.empty() && !words.allow.empty()) refuse("give --block or --allow, not both");
    options->allows = !words.allow.empty();
    for (const auto* const lists : {&words.block, &words.allow}) {
        for (const std::string& list : *lists) {
            std::istringstream items(list);
            for (std::string item; std::getline(items, item, ',');)
                addCategory(CLI::detail::trim_copy(item), options->names, &options->named);
        }
    }
    if (options->named.any()) return;
    if (!words.block.empty() || !words.allow.empty()) refuse("a list of categories is empty: write 5,33-34");
    options->named.set();
}

Verdict verdictOf(const std::string& word, const char* option, bool rewrites) {
    if (word == "ok") return Verdict::ok;
    if (word == "err") return Verdict::err;
    if (word == "bh") return Verdict::bh;
    if (word == "redirect" && rewrites) return Verdict::redirect;
    refuse(std::string(option) + " takes ok, err or bh" + (rewrites ? " or redirect" : "") + ", not " + word);
}

unsigned milliseconds(const std::string& text, const char* option) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const bool isDecimal = !text.empty() && text.find_first_not_of("0123456789.") == text.npos && *end == 0;
    if (!isDecimal || seconds > 86400)
        refuse(std::string(option) + " takes 0 to 86400 seconds, 0.5 or the like");
    // A limit must not become none.
    return static_cast<unsigned>(std::ceil(seconds * 1000));
}

void interpret(const Words& words, HelperOptions* options) {
    if (words.mode != "acl" && words.mode != "rewrite")
        refuse(words.mode.empty() ? "say what for: katc helper acl, or katc helper rewrite"
                                  : "there is no helper " + words.mode + ": it is acl or rewrite");
    options->rewrites = words.mode == "rewrite";
    readCategories(words, options);
    if (options->rewrites) {
        if (words.block.empty() && words.allow.empty()) refuse("rewrite needs --block or --allow");
        if (words.redirect.empty()) refuse("rewrite needs --redirect with the URL of a page");
        const std::string problem = options->redirect.set(words.redirect);
        if (!problem.empty()) refuse("the URL of --redirect " + problem);
    } else if (!words.redirect.empty()) {
        refuse("--redirect goes with rewrite alone");
    }
    if (!words.onFailure.empty())
        options->onFailure = verdictOf(words.onFailure, "--on-failure", options->rewrites);
    if (!words.onUnknown.empty())
        options->onUnknown = verdictOf(words.onUnknown, "--on-unknown", options->rewrites);
    options->answerMs = milliseconds(words.answerSec, "--timeout");
    options->waitMs = milliseconds(words.waitSec, "--wait");
}

// An option with a number in decimal digits: CLI11 itself would read 010 as 8.
void addNumber(CLI::App* app, const char* option, unsigned* number, unsigned least, unsigned most,
               const char* help) {
    const auto read = [=](const std::string& text) {
        if (parseNumber(text, number) && *number >= least && *number <= most) return;
        refuse(std::string(option) + " takes a number from " + std::to_string(least) + " to " +
               std::to_string(most) + ", not " + text);
    };
    app->add_option_function<std::string>(option, read, help)->type_name("N");
}

const CLI::Validator redirectStatus(
    [](const std::string& text) {
        return text == "301" || text == "302" || text == "303" || text == "307" || text == "308"
                   ? std::string()
                   : "must be 301, 302, 303, 307 or 308, not " + text;
    },
    "");

void addOptions(CLI::App* app, Words* words, HelperOptions* options) {
    app->add_option("MODE", words->mode, "acl or rewrite")->type_name("");
    app->add_option("-s,--socket", options->socket,
                    "katd's socket; without it the settings in KATD_DIR name it")
        ->type_name("SOCKET");
    app->add_flag("--concurrency", options->hasChannels,
                  "Lines begin with a channel-ID: squid.conf says concurrency=N");
    addNumber(app, "--url-field", &options->urlField, 1, 1000,
              "Which value of a line is the URL; default 1, the first");
    app->add_option("--block", words->block, "Categories to block")
        ->type_name("LIST")
        ->allow_extra_args(false);
    app->add_option("--allow", words->allow, "Categories to allow")
        ->type_name("LIST")
        ->allow_extra_args(false);
    app->add_option("--names", words->names, "File of lines name = number: names of categories")
        ->type_name("FILE");
    app->add_option("--redirect", words->redirect,
                    "Where to redirect to; {category}, {name} and {url} in it\n"
                    "become those of the URL, escaped")
        ->type_name("URL");
    app->add_option("--status", options->redirectStatus,
                    "Of a redirect: 301, 302, 303, 307 or 308; default 302")
        ->check(redirectStatus)
        ->type_name("N");
    app->add_option("--on-failure", words->onFailure,
                    "Answer when katd gives none: ok, err or bh, of rewrite\n"
                    "also redirect; default bh")
        ->type_name("WORD");
    app->add_option("--on-unknown", words->onUnknown,
                    "Answer when katd has no certain one, the same words;\n"
                    "default: as for a URL without a category")
        ->type_name("WORD");
    app->add_flag("-r,--retry", options->withRetry,
                  "Have katd ask the engine again while it answers Unknown");
    app->add_flag("--keep-port", options->keepsPort, "Ask for host:port, not for the host alone");
    addNumber(app, "--connections", &options->connections, 1, 64,
              "Connections to katd, 1 to 64; default 4, and one without\n--concurrency");
    addNumber(app, "--batch", &options->batch, 1, 256,
              "Lines that a connection takes at once, 1 to 256; default 16");
    app->add_option("--timeout", words->answerSec, "Limit for an answer of katd, 0 for none; default 15")
        ->type_name("SECONDS");
    app->add_option("--wait", words->waitSec, "How long a URL waits for katd to come back; default 0")
        ->type_name("SECONDS");
}

}  // namespace

bool parseHelperOptions(int argc, const char* const* argv, HelperOptions* options, int* status) {
    CLI::App app("Answers squid's questions which URLs are of which categories, as katd knows them.",
                 "katc helper");
    app.formatter(std::make_shared<HelpText>());
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", std::string("katc helper ") + KATC_VERSION,
                         "Print the version and exit");
    app.footer(footer);
    Words words;
    addOptions(&app, &words, options);
    try {
        app.parse(argc, argv);
        interpret(words, options);
        return true;
    } catch (const CLI::Success& e) {
        *status = app.exit(e) == 0 ? answered : badUsage;
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "katc helper: %s.\nkatc helper --help tells more.\n", e.what());
        *status = badUsage;
    }
    return false;
}

}  // namespace katc
