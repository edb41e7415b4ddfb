#include "Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Shared.h"

namespace katlist {

namespace {

constexpr const char* statuses =
    "Exit status: 0 all is well; 1 something is wrong with an input or a list, or a URL\n"
    "is in no list; 2 bad usage; 3 a file cannot be read or written, or memory is short.";

constexpr const char* buildFooter =
    "An INPUT is a file, - for standard input, NUMBER=FILE for a file of one category,\n"
    "or a folder with a folder for each category that holds a file \"urls\" or \"domains\".\n"
    "A line is a host or a URL, CATEGORY|ITEM, or one of a hosts file; # begins a comment.";

const std::map<std::string, OnNested> nestedWords = {
    {"keep", OnNested::keep}, {"drop", OnNested::drop}, {"fail", OnNested::fail}};
const std::map<std::string, BareHosts> bareWords = {
    {"keep", BareHosts::keep}, {"slash", BareHosts::slash}, {"skip", BareHosts::skip}};

template <typename Value>
void addWord(CLI::App* app, const char* name, const char* text, const std::map<std::string, Value>& words,
             Value* value) {
    std::vector<std::string> names;
    names.reserve(words.size());
    for (const auto& word : words)
        names.push_back(word.first);
    app->add_option_function<std::string>(
           name, [&words, value](const std::string& word) { *value = words.at(word); }, text)
        ->type_name(CLI::detail::join(names, "|"))
        ->check(CLI::Validator(
            [&words, names](const std::string& word) {
                return words.count(word) != 0 ? std::string()
                                              : "must be " + CLI::detail::join(names, ", ") + ", not " + word;
            },
            ""));
}

// A number in decimal digits: CLI11 itself would take 044 for an octal one.
template <typename Value>
CLI::Option* addNumber(CLI::App* app, const char* name, const char* text, std::uint64_t limit, Value* value) {
    const auto read = [=](const std::string& word) {
        const bool isNumber =
            !word.empty() && word.size() <= 10 && word.find_first_not_of("0123456789") == std::string::npos;
        const std::uint64_t number = isNumber ? std::strtoull(word.c_str(), nullptr, 10) : limit + 1;
        if (number > limit) {
            throw CLI::ValidationError(name, "must be a number from 0 to " + std::to_string(limit) +
                                                 " in decimal digits, not " + printable(word));
        }
        *value = static_cast<Value>(number);
    };
    return app->add_option_function<std::string>(name, read, text)->type_name("N");
}

void addShow(CLI::App* app, const char* text, std::uint64_t* show) {
    addNumber(app, "--show", text, 1000000000, show)->default_str(std::to_string(*show));
}

// --urls and --domains without a value, at most one of them.
struct KindFlags {
    KindFlags(CLI::App* app, const std::string& urlsText, const std::string& domainsText)
        : urls(app->add_flag("--urls", urlsText)), domains(app->add_flag("--domains", domainsText)) {
        urls->excludes(domains);
    }
    CLI::Option* urls;
    CLI::Option* domains;
};

// What stands on the command line before "--" and behind it.
using Words = std::vector<std::string>;

CLI::App* addBuild(CLI::App* app, BuildOptions* build, const Words& verbatim) {
    auto* const command =
        app->add_subcommand("build", "Make a list file from plain lists, hosts files and folders");
    const KindFlags kind(command, "Make a list of URLs, which katd matches as prefixes",
                         "Make a list of domains, which katd matches as whole hosts");
    command->add_option("-o,--output", build->output, "The list file, replaced when all went well")
        ->type_name("FILE")
        ->required();
    addNumber(command, "--category", "Category, 0 to 255, of lines that name none", categoryLimit,
              &build->category);
    command->add_option("--map", build->map, "Numbers of the folders: lines \"category = number\"")
        ->type_name("FILE");
    addWord(command, "--on-nested",
            "What becomes of an item that begins with another\none of a different category (default: drop)",
            nestedWords, &build->onNested);
    addWord(
        command, "--bare-hosts",
        "What becomes of a host without a path in a list of\nURLs (default: keep; slash: add a / behind it)",
        bareWords, &build->bareHosts);
    command->add_flag("--with-www", build->withWww, "Add the www. name of each host");
    command->add_flag("--strict", build->strict, "End at the first bad line");
    command->add_flag("-q,--quiet", build->quiet, "Print no summary");
    addShow(command, "Notes of each kind to show", &build->show);
    command->add_option("INPUT", build->inputs, "Where to read from")->type_name("");
    command->footer(buildFooter);
    command->callback([=] {
        build->inputs.insert(build->inputs.end(), verbatim.begin(), verbatim.end());
        if (kind.urls->count() + kind.domains->count() == 0)
            throw CLI::ParseError("build needs --urls or --domains", badUsage);
        if (build->inputs.empty())
            throw CLI::ParseError("build needs an INPUT: a file, a folder, or - for standard input",
                                  badUsage);
        if (build->output == "-")
            throw CLI::ParseError("a list goes to a file, not to standard output: name one (./- if it is -)",
                                  badUsage);
        build->kind = kind.urls->count() != 0 ? Kind::urls : Kind::domains;
    });
    return command;
}

CLI::App* addCheck(CLI::App* app, CheckOptions* check, const Words& verbatim) {
    auto* const command = app->add_subcommand("check", "Say what is wrong with list files, line by line");
    const KindFlags kind(
        command, "They are lists of URLs",
        "They are lists of domains (without either: a list with\na / in any item is one of URLs)");
    addShow(command, "Findings of each file to show", &check->show);
    command->add_option("FILE", check->files, "List files")->type_name("");
    command->callback([=] {
        check->files.insert(check->files.end(), verbatim.begin(), verbatim.end());
        if (check->files.empty()) throw CLI::ParseError("check needs a FILE", badUsage);
        if (kind.urls->count() != 0) check->kind = KindOption::urls;
        if (kind.domains->count() != 0) check->kind = KindOption::domains;
    });
    return command;
}

CLI::App* addFind(CLI::App* app, FindOptions* find, const Words& verbatim) {
    auto* const command = app->add_subcommand("find", "Say what katd answers from its lists, and why");
    command->add_option("--urls", find->urlsFile, "The list of URLs")->type_name("FILE");
    command->add_option("--domains", find->domainsFile, "The list of domains")->type_name("FILE");
    command->add_option("URL", find->urls, "What to look up; - reads URLs from standard input, one a line")
        ->type_name("");
    command->footer("-- stands before a URL that begins with -.");
    command->callback([=] {
        find->verbatim = verbatim;
        if (find->urlsFile.empty() && find->domainsFile.empty())
            throw CLI::ParseError("find needs a list: --urls FILE, --domains FILE or both", badUsage);
        if (find->urls.empty() && find->verbatim.empty()) throw CLI::ParseError("find needs a URL", badUsage);
    });
    return command;
}

CLI::App* addStat(CLI::App* app, StatOptions* stat, const Words& verbatim) {
    auto* const command = app->add_subcommand("stat", "Print items and memory of a list by category");
    command->add_flag("--json", stat->json, "Print one JSON object instead of a table");
    command->add_option("--map", stat->map, "Names of the categories: lines \"category = number\"")
        ->type_name("FILE");
    auto files = std::make_shared<Words>();
    command->add_option("FILE", *files, "List file")->type_name("");
    command->callback([=] {
        files->insert(files->end(), verbatim.begin(), verbatim.end());
        if (files->size() != 1) throw CLI::ParseError("stat needs one FILE", badUsage);
        stat->file = files->front();
    });
    return command;
}

}  // namespace

bool parseArguments(int argc, const char* const* argv, Arguments* arguments, ExitStatus* status) {
    // What stands behind "--" is a file or a URL whatever it looks like: CLI11 would still take some words
    // for subcommands.
    const char* const* const end = argv + argc;
    const char* const* const mark = std::find(argv + 1, end, std::string("--"));
    const Words verbatim(mark == end ? end : mark + 1, end);
    Words words(std::make_reverse_iterator(mark), std::make_reverse_iterator(argv + 1));

    CLI::App app("Makes and examines the list files of katd.", "katlist");
    app.set_version_flag("--version", std::string("katlist ") + KATLIST_VERSION,
                         "Print the version and exit");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.footer(statuses);
    const std::pair<CLI::App*, Command> commands[] = {
        {addBuild(&app, &arguments->build, verbatim), Command::build},
        {addCheck(&app, &arguments->check, verbatim), Command::check},
        {addFind(&app, &arguments->find, verbatim), Command::find},
        {addStat(&app, &arguments->stat, verbatim), Command::stat}};
    try {
        app.parse(std::move(words));
        for (const auto& [command, value] : commands) {
            if (!command->parsed()) continue;
            arguments->command = value;
            return true;
        }
        throw CLI::ParseError("a command is missing: build, check, find or stat", badUsage);
    } catch (const CLI::Success& e) {
        *status = app.exit(e) == 0 ? fine : badUsage;
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "katlist: %s.\nkatlist --help tells more.\n", e.what());
        *status = badUsage;
    }
    return false;
}

}  // namespace katlist
