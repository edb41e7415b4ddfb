#include "Arguments.h"

#include <memory>

#include "tools/Numbers.h"
#include "tools/Options.h"

namespace katcatalog {

using tools::CommandLine;
using tools::UsageError;

namespace {

constexpr const char* statuses =
    "Exit status: 0 all is well; 1 something is wrong with an input or the catalogue, or\n"
    "no entry covers a URL; 2 bad usage; 3 a file or store cannot be read or written, or\n"
    "memory is short.";

constexpr const char* passwordText = "The store's password is the first line";
constexpr const char* readText = "The catalogue, or redis://... of a shared store, as for push";

constexpr const char* inputFooter =
    "An INPUT is a file, - for standard input, CATEGORY=FILE for a file of one category,\n"
    "or a folder with a folder for each category that holds a file \"urls\" or \"domains\".\n"
    "katlist-format(5) and katcatalog(1) tell which lines are read.";

// Options of the commands that read lists.
void addReading(tools::Command* command, Arguments* arguments, std::string* category) {
    command->text("--map", "FILE", &arguments->map, "Numbers of the categories: lines \"category = number\"");
    command->text("--category", "N|none", category,
                  "Category, 0 to 65535, of lines that name none; none: entries\n"
                  "that are known, without a category");
    command->flag("--allow-suffixes", &arguments->allowSuffixes,
                  "Take whole public suffixes such as com or co.uk");
    command->flag("--strict", &arguments->strict, "End at the first bad line");
    command->flag("-q,--quiet", &arguments->quiet, "Print no summary and no progress");
    command->flag("--json", &arguments->json, "Print the summary as one JSON object");
    command->number("--show", 0, 1000000000, &arguments->show, "Notes of each kind to show")
        .showDefault("10");
    command->operands("INPUT", &arguments->inputs, "Where to read from");
    command->setFooter(inputFooter);
}

}  // namespace

bool parseArguments(int argc, const char* const* argv, Arguments* arguments, int* status) {
    CommandLine line("katcatalog", KATCATALOG_VERSION,
                     "Makes, changes and examines the catalogues of katd's engine.");
    line.setFooter(statuses);
    line.requireCommand("a command is missing: import, update, sync, push, find, stat, check or dump");
    std::string category;

    tools::Command& import =
        line.command("import", "Make a catalogue from lists, in one step when all went well");
    import.text("-o,--output", "FILE", &arguments->catalog, "The catalogue").required();
    import.flag("--compact", &arguments->compact,
                "Leave out hosts that the entries above them make redundant");
    addReading(&import, arguments, &category);

    tools::Command& update = line.command("update", "Add to a catalogue, or take from it, while it is used");
    update.operand("CATALOG", &arguments->catalog, "The catalogue").required();
    update.texts("--remove", "INPUT", &arguments->removed, "Take out what this input names");
    addReading(&update, arguments, &category);

    tools::Command& sync = line.command("sync", "Make a catalogue say what the lists say, while it is used");
    sync.operand("CATALOG", &arguments->catalog, "The catalogue").required();
    sync.number("--min-items", 1, 1000000000, &arguments->minItems, "Refuse lists with fewer entries");
    sync.number("--max-shrink", 0, 100, &arguments->maxShrink,
                "Refuse lists with N per cent fewer entries than the catalogue");
    sync.flag("-n,--dry-run", &arguments->dryRun, "Say what would change, and change nothing");
    sync.flag("--all", &arguments->all, "Read all lists, also those that have not changed");
    addReading(&sync, arguments, &category);

    tools::Command& push =
        line.command("push", "Make a shared store say what the lists say, while it is used");
    push.operand("STORE", &arguments->catalog, "redis://[USER@]HOST[:PORT], or redis:///PATH of a socket")
        .required();
    push.text("--password-file", "FILE", &arguments->passwordFile, passwordText);
    push.number("--min-items", 1, 1000000000, &arguments->minItems, "Refuse lists with fewer entries");
    addReading(&push, arguments, &category);

    tools::Command& find =
        line.command("find", "Say what the catalogue has for URLs, and where it came from");
    find.operand("CATALOG", &arguments->catalog, readText).required();
    find.text("--password-file", "FILE", &arguments->passwordFile, passwordText);
    find.operands("URL", &arguments->inputs, "What to look up; - reads URLs from standard input, one a line");
    find.flag("--json", &arguments->json, "Print one JSON object a URL");

    tools::Command& stat = line.command("stat", "Print the entries by category and by list");
    stat.operand("CATALOG", &arguments->catalog, readText).required();
    stat.text("--password-file", "FILE", &arguments->passwordFile, passwordText);
    stat.flag("--json", &arguments->json, "Print one JSON object");

    tools::Command& check = line.command("check", "Read all of a catalogue and say what is wrong with it");
    check.operand("CATALOG", &arguments->catalog, "The catalogue").required();

    tools::Command& dump =
        line.command("dump", "Print all entries: entry, categories, lists, separated by tabs");
    dump.operand("CATALOG", &arguments->catalog, "The catalogue").required();

    line.check([&] {
        if (category == "none") {
            arguments->category = noCategory;
        } else if (!category.empty()) {
            const auto number = tools::parseDecimal(category, highestCategory);
            if (!number) throw UsageError("--category must be a number from 0 to 65535, or none");
            arguments->category = static_cast<std::int32_t>(*number);
        }
    });
    const auto needsInput = [&] {
        if (arguments->inputs.empty() && arguments->removed.empty())
            throw UsageError("an INPUT is missing: a file, a folder, or - for standard input");
    };
    import.check(needsInput);
    update.check(needsInput);
    sync.check(needsInput);
    push.check(needsInput);
    find.check([&] {
        if (arguments->inputs.empty()) throw UsageError("find needs a URL");
    });
    if (!line.parse(argc, argv, status)) return false;
    const std::pair<const tools::Command*, Command> commands[] = {
        {&import, Command::import}, {&update, Command::update}, {&sync, Command::sync},
        {&push, Command::push},     {&find, Command::find},     {&stat, Command::stat},
        {&check, Command::check},   {&dump, Command::dump}};
    for (const auto& [command, value] : commands) {
        if (command->isChosen()) arguments->command = value;
    }
    return true;
}

}  // namespace katcatalog
