#include "tools/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>

#include "tools/Numbers.h"
#include "tools/Text.h"

namespace tools {

namespace {

class HelpFormatter : public CLI::Formatter {
public:
    explicit HelpFormatter(std::string usage) : usage_(std::move(usage)) {}
    std::string make_usage(const CLI::App*, std::string) const override { return usage_; }

private:
    const std::string usage_;
};

std::string joined(const std::vector<std::string>& words, const char* separator) {
    return CLI::detail::join(words, separator);
}

}  // namespace

Option& Option::required() {
    option_->required();
    return *this;
}

Option& Option::showDefault(const std::string& value) {
    option_->default_str(value);
    return *this;
}

bool Option::isGiven() const {
    return option_->count() != 0;
}

std::string Option::name() const {
    return option_->get_name();
}

Command::Command(CLI::App* app) : app_(app) {
    app_->allow_extras();
    app_->fallthrough();
}

Command::~Command() = default;

Option Command::flag(const char* names, const char* help) {
    const std::string description = help;  // as a const string& it is not taken for a target
    return Option(app_->add_flag(names, description));
}

Option Command::flag(const char* names, bool* value, const char* help) {
    return Option(app_->add_flag(names, *value, help));
}

Option Command::text(const char* names, const char* placeholder, std::string* value, const char* help) {
    auto* const option = app_->add_option_function<std::string>(
        names, [value](const std::string& text) { *value = text; }, help);
    return Option(option->type_name(placeholder));
}

Option Command::texts(const char* names, const char* placeholder, std::vector<std::string>* values,
                      const char* help) {
    return Option(app_->add_option(names, *values, help)->type_name(placeholder)->allow_extra_args(false));
}

Option Command::addNumber(const char* names, std::uint64_t least, std::uint64_t most,
                          const std::function<void(std::uint64_t)>& set, const char* help) {
    const auto read = [=](const std::string& digits) {
        const auto number = parseDecimal(digits, most);
        if (!number || *number < least) {
            throw UsageError(std::string(names) + " takes a number from " + std::to_string(least) + " to " +
                             std::to_string(most) + " in decimal digits, not " + digits);
        }
        set(*number);
    };
    const bool isOperand = names[0] != '-';
    return Option(app_->add_option_function<std::string>(names, read, help)->type_name(isOperand ? "" : "N"));
}

Option Command::seconds(const char* names, unsigned* milliseconds, const char* help) {
    const auto read = [=](const std::string& digits) {
        const auto value = parseSeconds(digits);
        if (!value) {
            throw UsageError(std::string(names) + " takes a number of seconds from 0 to " +
                             std::to_string(maxSeconds) + ", such as 2 or 0.5, not " + digits);
        }
        *milliseconds = *value;
    };
    return Option(app_->add_option_function<std::string>(names, read, help)->type_name("SECONDS"));
}

Option Command::word(const char* names, const std::vector<std::string>& words, std::string* value,
                     const char* help) {
    const auto read = [=](const std::string& given) {
        const auto found = std::find_if(words.begin(), words.end(), [&](const std::string& word) {
            return CLI::detail::to_lower(word) == CLI::detail::to_lower(given);
        });
        if (found == words.end())
            throw UsageError(std::string(names) + " takes " + joined(words, ", ") + ", not " + given);
        *value = *found;
    };
    const bool isOperand = names[0] != '-';
    return Option(app_->add_option_function<std::string>(names, read, help)
                      ->type_name(isOperand ? "" : joined(words, "|")));
}

Option Command::operand(const char* placeholder, std::string* value, const char* help) {
    return text(placeholder, "", value, help);
}

void Command::operands(const char* placeholder, std::vector<std::string>* values, const char* help,
                       std::vector<std::string>* afterMark) {
    operands_ = values;
    afterMark_ = afterMark;
    if (*placeholder != '\0') app_->add_option(placeholder, *values, help)->type_name("");
}

void Command::exclude(Option one, Option other, const std::string& sentence) {
    check([=] {
        if (!one.isGiven() || !other.isGiven()) return;
        throw UsageError(sentence.empty() ? one.name() + " and " + other.name() + " cannot be given together"
                                          : sentence);
    });
}

void Command::require(Option one, Option other, const std::string& sentence) {
    check([=] {
        if (!one.isGiven() || other.isGiven()) return;
        throw UsageError(sentence.empty() ? one.name() + " has no effect without " + other.name() : sentence);
    });
}

void Command::check(std::function<void()> function) {
    checks_.push_back(std::move(function));
}

Command& Command::command(const char* name, const char* help) {
    app_->require_subcommand(0, 1);
    auto* const app = app_->add_subcommand(name, help);
    app->footer("");  // a new one has its parent's
    app->formatter(std::make_shared<CLI::Formatter>());
    commands_.emplace_back(new Command(app));
    return *commands_.back();
}

void Command::requireCommand(const std::string& sentence) {
    check([=] {
        for (const auto& command : commands_) {
            if (command->isChosen()) return;
        }
        throw UsageError(sentence);
    });
}

bool Command::isChosen() const {
    return app_->parsed();
}

void Command::setUsage(const std::string& usage) {
    app_->formatter(std::make_shared<HelpFormatter>(usage));
}

void Command::setFooter(const std::string& footer) {
    app_->footer(footer);
}

std::vector<Command*> Command::chosen() {
    std::vector<Command*> all = {this};
    for (const auto& command : commands_) {
        if (!command->isChosen()) continue;
        const std::vector<Command*> below = command->chosen();
        all.insert(all.end(), below.begin(), below.end());
    }
    return all;
}

// `unknown` is what CLI11 found no option or operand for: operands that the help does not list, and mistakes.
void Command::takeOperands(const std::vector<Command*>& commands, const std::vector<std::string>& unknown,
                           const std::vector<std::string>& afterMark) {
    const auto taker = std::find_if(commands.rbegin(), commands.rend(),
                                    [](const Command* command) { return command->operands_ != nullptr; });
    for (const std::string& word : unknown) {
        if (word.size() > 1 && word[0] == '-')
            throw UsageError("there is no option " + word + "; an argument that begins with - goes after --");
        if (taker == commands.rend()) throw UsageError("the argument " + word + " is not expected");
        (*taker)->operands_->push_back(word);
    }
    if (afterMark.empty()) return;
    if (taker == commands.rend()) throw UsageError("the argument " + afterMark[0] + " is not expected");
    auto* const target = (*taker)->afterMark_ != nullptr ? (*taker)->afterMark_ : (*taker)->operands_;
    target->insert(target->end(), afterMark.begin(), afterMark.end());
}

void Command::runChecks() const {
    for (const auto& function : checks_)
        function();
}

CommandLine::CommandLine(const std::string& name, const std::string& version, const std::string& description)
    : Command(new CLI::App(description, name)), name_(name), owned_(app_) {
    app_->set_help_flag("-h,--help", "Print this help and exit");
    app_->set_version_flag("--version", name + " " + version, "Print the version and exit");
}

CommandLine::~CommandLine() = default;

bool CommandLine::parse(int argc, const char* const* argv, int* status) {
    // CLI11 would take words after "--" for the names of commands.
    const char* const* const end = argv + argc;
    const char* const* const mark = std::find(argv + 1, end, std::string("--"));
    std::vector<std::string> words(std::make_reverse_iterator(mark), std::make_reverse_iterator(argv + 1));
    *status = badUsage;
    try {
        app_->parse(std::move(words));
        const std::vector<Command*> commands = chosen();
        takeOperands(commands, app_->remaining(true), {mark == end ? end : mark + 1, end});
        for (const Command* const command : commands)
            command->runChecks();
        return true;
    } catch (const CLI::Success& e) {
        app_->exit(e);
        const bool isWritten = std::cout.good() && std::fflush(stdout) == 0;
        if (!isWritten)
            printError(name_, std::string("cannot write to standard output (") + std::strerror(errno) + ")");
        *status = isWritten ? 0 : 1;
    } catch (const CLI::ParseError& e) {
        printUsageError(e.what());
    } catch (const UsageError& e) {
        printUsageError(e.what());
    }
    return false;
}

void CommandLine::printUsageError(const char* sentence) const {
    printError(name_, sentence);
    std::fprintf(stderr, "Try '%s --help' for more information.\n", name_.c_str());
}

}  // namespace tools
