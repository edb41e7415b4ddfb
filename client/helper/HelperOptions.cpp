#include "helper/HelperOptions.h"

#include <string>
#include <vector>

#include "tools/Options.h"

namespace katc {

namespace {

constexpr const char* helperUsage =
    "Usage: katc helper acl [OPTION]...\n"
    "       katc helper rewrite --block LIST|--allow LIST --redirect URL [OPTION]...\n";

constexpr const char* helperFooter =
    "Squid starts it: acl for external_acl_type, rewrite for url_rewrite_program.\n"
    "acl answers OK for a URL that has one of the categories of --block or --allow (with\n"
    "neither: any category), else ERR. rewrite redirects a URL that has one of --block,\n"
    "or has none of --allow. LIST holds numbers, ranges and names: 5,33-34,games.\n"
    "\n"
    "Exit status: 0 end of the input; 1 the input cannot be read or an answer not be\n"
    "written; 2 bad usage. See katc-helper(1) and docs/squid.md.";

// Words of the command line that are interpreted once all of them are known.
struct Words {
    std::vector<std::string> modes;
    std::vector<std::string> block, allow;
    std::string categories, redirect, onFailure, onUnknown, status;
};

[[noreturn]] void refuse(const std::string& sentence) {
    throw tools::UsageError(sentence);
}

void readCategories(const Words& words, HelperOptions* options) {
    std::string problem;
    if (!words.categories.empty() &&
        options->names.read(words.categories, &problem) != tools::CategoryNames::Status::ok)
        refuse(problem);
    options->allows = !words.allow.empty();
    std::vector<bool> chosen(options->named.size(), words.block.empty() && words.allow.empty());
    for (const std::string& list : options->allows ? words.allow : words.block) {
        if (!options->names.resolveList(list, &chosen, &problem)) refuse(problem);
    }
    for (std::size_t i = 0; i < chosen.size(); ++i)
        options->named[i] = chosen[i];
}

Verdict verdictOf(const std::string& word, const char* option, bool rewrites) {
    if (word == "ok") return Verdict::ok;
    if (word == "err") return Verdict::err;
    if (word == "bh") return Verdict::bh;
    if (word == "redirect" && rewrites) return Verdict::redirect;
    refuse(std::string(option) + " takes ok, err or bh" + (rewrites ? " or redirect" : "") + ", not " + word);
}

void interpret(const Words& words, HelperOptions* options) {
    if (words.modes.empty()) refuse("say what for: katc helper acl, or katc helper rewrite");
    const std::string& mode = words.modes[0];
    if (mode != "acl" && mode != "rewrite") refuse("there is no helper " + mode + ": it is acl or rewrite");
    if (words.modes.size() > 1) refuse("the argument " + words.modes[1] + " is not expected");
    options->rewrites = mode == "rewrite";
    readCategories(words, options);
    if (options->rewrites) {
        if (words.block.empty() && words.allow.empty()) refuse("rewrite needs --block or --allow");
        if (words.redirect.empty()) refuse("rewrite needs --redirect with the URL of a page");
        const std::string problem = options->redirect.set(words.redirect);
        if (!problem.empty()) refuse("the URL of --redirect " + problem);
    } else if (!words.redirect.empty()) {
        refuse("--redirect has no effect with acl");
    } else if (!words.status.empty()) {
        refuse("--status has no effect with acl");
    }
    if (!words.status.empty()) options->redirectStatus = static_cast<unsigned>(std::stoul(words.status));
    if (!words.onFailure.empty())
        options->onFailure = verdictOf(words.onFailure, "--on-failure", options->rewrites);
    if (!words.onUnknown.empty())
        options->onUnknown = verdictOf(words.onUnknown, "--on-unknown", options->rewrites);
}

}  // namespace

bool parseHelperOptions(int argc, const char* const* argv, HelperOptions* options, int* status) {
    tools::CommandLine line("katc helper", KATC_VERSION,
                            "Answers squid's questions about the categories of URLs, as katd knows them.");
    line.setUsage(helperUsage);
    line.setFooter(helperFooter);
    Words words;
    line.operands("", &words.modes, "");
    line.text("-s,--socket", "SOCKET", &options->socket,
              "katd's socket; default: the settings in KATD_DIR name it");
    const auto concurrency = line.flag("--concurrency", &options->hasChannels,
                                       "Lines begin with a channel-ID: squid.conf has concurrency=N");
    line.number("--url-field", 1, 1000, &options->urlField,
                "Which value of a line is the URL; default 1, the first");
    const auto block = line.texts("--block", "LIST", &words.block, "Categories to block");
    const auto allow = line.texts("--allow", "LIST", &words.allow, "Categories to allow");
    line.exclude(block, allow, "give --block or --allow, not both");
    line.text("--categories", "FILE", &words.categories,
              "Names of categories: a file of lines name = number");
    line.text("--redirect", "URL", &words.redirect,
              "Where to redirect to; {category}, {name} and {url} in it\n"
              "become those of the URL, escaped");
    line.word("--status", {"301", "302", "303", "307", "308"}, &words.status,
              "HTTP status of a redirect; default 302");
    line.text("--on-failure", "WORD", &words.onFailure,
              "Answer if katd gives none: ok, err or bh; with rewrite\n"
              "also redirect; default bh");
    line.text("--on-unknown", "WORD", &words.onUnknown,
              "Answer if katd has no certain one: the same words;\n"
              "default: as for a URL without a category");
    line.flag("-r,--retry", &options->withRetry, "Have katd ask the engine again while it answers Unknown");
    line.flag("--keep-port", &options->keepsPort, "Ask for host:port, not for the host alone");
    const auto connections =
        line.number("--connections", 1, 64, &options->connections,
                    "Connections to katd, 1 to 64; default 4; without\n--concurrency always one");
    line.require(connections, concurrency);
    line.number("--batch", 1, 256, &options->batch,
                "Lines that a connection takes at once, 1 to 256; default 16");
    line.seconds("--timeout", &options->answerMs, "Time limit for an answer of katd, 0 for none; default 15");
    line.seconds("--wait", &options->waitMs, "How long a URL waits for katd to come back; default 0");
    line.check([&] { interpret(words, options); });
    return line.parse(argc, argv, status);
}

}  // namespace katc
