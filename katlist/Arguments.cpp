#include "Arguments.h"

#include <map>
#include <string>
#include <vector>

#include "tools/Options.h"

namespace katlist {

namespace {

constexpr std::uint64_t showLimit = 1000000000;

constexpr const char* statuses =
    "Exit status: 0 success; 1 something is wrong with an input or a list, or a URL is\n"
    "not listed; 2 bad usage; 3 a file cannot be read or written, or out of memory.";

constexpr const char* buildFooter =
    "An INPUT is a file, - for standard input, CATEGORY=FILE for a file of one category,\n"
    "or a folder with a folder for each category that contains a file \"urls\" or \"domains\".\n"
    "CATEGORY is a number, or a name of the file of --categories. katlist(1) describes the\n"
    "formats of lines; # begins a comment.";

constexpr const char* categoriesHelp = "Names of the categories, lines \"name = number\"";

const std::map<std::string, OnNested> nestedWords = {
    {"keep", OnNested::keep}, {"drop", OnNested::drop}, {"fail", OnNested::fail}};
const std::map<std::string, BareHosts> bareWords = {
    {"keep", BareHosts::keep}, {"slash", BareHosts::slash}, {"skip", BareHosts::skip}};

// An option whose words are those of an enumeration; the check at the end of parsing sets *value.
template <typename Value>
tools::Option addWord(tools::Command* command, const char* name, const std::map<std::string, Value>& words,
                      std::string* word, Value* value, const char* help) {
    std::vector<std::string> names;
    names.reserve(words.size());
    for (const auto& [key, ignored] : words)
        names.push_back(key);
    command->check([&words, word, value] {
        if (!word->empty()) *value = words.at(*word);
    });
    return command->word(name, names, word, help);
}

void addBuild(tools::Command* build, BuildOptions* options, std::string* nested, std::string* bare) {
    const auto urls = build->flag("--urls", "Make a list of URLs, which katd matches as prefixes");
    const auto domains =
        build->flag("--domains", "Make a list of domains, which katd matches as whole hosts");
    build->exclude(urls, domains);
    build->text("-o,--output", "FILE", &options->output, "The list file, replaced if everything went well")
        .required();
    build->text("--category", "CATEGORY", &options->category, "Category of lines that name none");
    build->text("--categories,--map", "FILE", &options->categories,
                "Names of the categories, lines \"name = number\",\n"
                "in the order of importance: a host in two categories\n"
                "gets the one that comes first");
    const auto onNested = addWord(build, "--on-nested", nestedWords, nested, &options->onNested,
                                  "An item that begins with another one of a different\n"
                                  "category (default: drop)");
    const auto bareHosts = addWord(build, "--bare-hosts", bareWords, bare, &options->bareHosts,
                                   "A host without a path in a list of URLs\n"
                                   "(default: keep; slash: append a /)");
    build->exclude(domains, onNested, "--on-nested has no effect on a list of domains");
    build->exclude(domains, bareHosts, "--bare-hosts has no effect on a list of domains");
    build->flag("--with-www", &options->withWww, "Add the www. name of each host");
    build->number("--min-items", 1, showLimit, &options->minItems, "Refuse a list with fewer items");
    build->number("--max-shrink", 0, 100, &options->maxShrink,
                  "Refuse a list with so many per cent fewer items than\nthe one that it replaces");
    build->flag("--strict", &options->strict, "Stop at the first bad line");
    build->flag("-q,--quiet", &options->quiet, "Print no summary and no progress");
    build->number("--show", 0, showLimit, &options->show, "Notes of each kind to show")
        .showDefault(std::to_string(options->show));
    build->operands("INPUT", &options->inputs, "Where to read from");
    build->setFooter(buildFooter);
    build->check([=] {
        if (!urls.isGiven() && !domains.isGiven()) throw tools::UsageError("build needs --urls or --domains");
        if (options->inputs.empty())
            throw tools::UsageError("build needs an INPUT: a file, a folder, or - for standard input");
        if (options->output == "-")
            throw tools::UsageError("a list goes to a file, not to standard output: name one (./- for -)");
        options->kind = urls.isGiven() ? Kind::urls : Kind::domains;
    });
}

void addCheck(tools::Command* check, CheckOptions* options) {
    const auto urls = check->flag("--urls", "They are lists of URLs");
    const auto domains = check->flag("--domains",
                                     "They are lists of domains (without either: a list with\n"
                                     "a / in any item is one of URLs)");
    check->exclude(urls, domains);
    check->number("--show", 0, showLimit, &options->show, "Findings of each file to show")
        .showDefault(std::to_string(options->show));
    check->operands("FILE", &options->files, "List files");
    check->check([=] {
        if (options->files.empty()) throw tools::UsageError("check needs a FILE");
        if (urls.isGiven()) options->kind = KindOption::urls;
        if (domains.isGiven()) options->kind = KindOption::domains;
    });
}

void addFind(tools::Command* find, FindOptions* options) {
    find->text("--urls", "FILE", &options->urlsFile, "The list of URLs");
    find->text("--domains", "FILE", &options->domainsFile, "The list of domains");
    find->text("--categories,--map", "FILE", &options->categories, categoriesHelp);
    find->operands("URL", &options->urls, "What to look up; - reads URLs from standard input, one a line",
                   &options->verbatim);
    find->setFooter("A URL that begins with - goes after --.");
    find->check([=] {
        if (options->urlsFile.empty() && options->domainsFile.empty())
            throw tools::UsageError("find needs a list: --urls FILE, --domains FILE or both");
        if (options->urls.empty() && options->verbatim.empty()) throw tools::UsageError("find needs a URL");
    });
}

void addStat(tools::Command* stat, StatOptions* options, std::vector<std::string>* files) {
    stat->flag("--json", &options->json, "Print one JSON object instead of a table");
    stat->text("--categories,--map", "FILE", &options->categories, categoriesHelp);
    stat->operands("FILE", files, "List file");
    stat->check([=] {
        if (files->size() != 1) throw tools::UsageError("stat needs one FILE");
        options->file = files->front();
    });
}

}  // namespace

bool parseArguments(int argc, const char* const* argv, Arguments* arguments, int* status) {
    std::string nested;
    std::string bare;
    std::vector<std::string> files;
    tools::CommandLine line("katlist", KATLIST_VERSION, "Makes and examines the list files of katd.");
    line.setFooter(statuses);
    line.requireCommand("a command is missing: build, check, find or stat");
    tools::Command& build = line.command("build", "Make a list file from lists in many formats");
    tools::Command& check = line.command("check", "Report what is wrong with list files, line by line");
    tools::Command& find = line.command("find", "Explain what katd answers from its lists");
    tools::Command& stat = line.command("stat", "Print items and memory of a list by category");
    addBuild(&build, &arguments->build, &nested, &bare);
    addCheck(&check, &arguments->check);
    addFind(&find, &arguments->find);
    addStat(&stat, &arguments->stat, &files);
    if (!line.parse(argc, argv, status)) return false;
    arguments->command = build.isChosen()   ? Command::build
                         : check.isChosen() ? Command::check
                         : find.isChosen()  ? Command::find
                                            : Command::stat;
    return true;
}

}  // namespace katlist
