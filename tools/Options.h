// Command lines. A small layer over CLI11, which only Options.cpp includes: its headers take the compiler
// half a minute.
#ifndef KATD_TOOLS_OPTIONS_H
#define KATD_TOOLS_OPTIONS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace tools {

// Bad usage: a sentence without its full stop. CommandLine::parse() prints it.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One option or operand of a Command; a reference to it, valid as long as its CommandLine.
class Option {
public:
    explicit Option(CLI::Option* option) : option_(option) {}

    Option& required();
    Option& showDefault(const std::string& value);  // in the help

    // Valid once parsed.
    bool isGiven() const;
    std::string name() const;  // "--json"

private:
    friend class Command;
    CLI::Option* option_;
};

// Options and operands of a program or of one of its commands. `names` are an option's names, separated by
// commas ("-s,--socket"); `placeholder` is the value in the help. Targets must outlive the CommandLine and
// keep their value if the option is not given. Wrong values are bad usage.
class Command {
public:
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    ~Command();

    Option flag(const char* names, const char* help);
    Option flag(const char* names, bool* value, const char* help);
    Option text(const char* names, const char* placeholder, std::string* value, const char* help);
    // May be repeated.
    Option texts(const char* names, const char* placeholder, std::vector<std::string>* values,
                 const char* help);
    // Decimal digits from `least` to `most`: no sign, no octal or hexadecimal number.
    template <class Number>
    Option number(const char* names, std::uint64_t least, std::uint64_t most, Number* value,
                  const char* help) {
        return addNumber(
            names, least, most, [value](std::uint64_t n) { *value = static_cast<Number>(n); }, help);
    }
    // Seconds such as 2 or 0.5, from 0 to maxSeconds, as parseSeconds() reads them.
    Option seconds(const char* names, unsigned* milliseconds, const char* help);
    // One of the words, in upper or lower case; *value becomes the one of the list. The help shows them with
    // | between.
    Option word(const char* names, const std::vector<std::string>& words, std::string* value,
                const char* help);

    // The next operand.
    Option operand(const char* placeholder, std::string* value, const char* help);
    // All operands that are left. Words after "--" are operands whatever they look like; they go to
    // *afterMark if that is not null. An empty placeholder keeps them out of the help.
    void operands(const char* placeholder, std::vector<std::string>* values, const char* help,
                  std::vector<std::string>* afterMark = nullptr);

    // Both given is bad usage, with the sentence or, if that is empty, one that names both.
    void exclude(Option one, Option other, const std::string& sentence = {});
    // `one` given without `other` is bad usage likewise.
    void require(Option one, Option other, const std::string& sentence = {});
    // Called at the end of parse() if this command is the program's or was chosen; may throw UsageError.
    // Those of a program are called before those of its commands.
    void check(std::function<void()> function);

    // A command below this one. The program's options may follow its name as well.
    Command& command(const char* name, const char* help);
    // Bad usage, with the sentence, unless one of this command's commands is chosen.
    void requireCommand(const std::string& sentence);
    // Whether parse() met its name.
    bool isChosen() const;

    void setUsage(const std::string& usage);  // replaces the line that the help would begin with
    void setFooter(const std::string& footer);

private:
    friend class CommandLine;

    explicit Command(CLI::App* app);

    std::vector<Command*> chosen();  // this one and the chosen ones below
    static void takeOperands(const std::vector<Command*>& commands, const std::vector<std::string>& unknown,
                             const std::vector<std::string>& afterMark);
    void runChecks() const;
    Option addNumber(const char* names, std::uint64_t least, std::uint64_t most,
                     const std::function<void(std::uint64_t)>& set, const char* help);

    CLI::App* const app_;
    std::vector<std::unique_ptr<Command>> commands_;
    std::vector<std::function<void()>> checks_;
    std::vector<std::string>* operands_ = nullptr;
    std::vector<std::string>* afterMark_ = nullptr;
};

// The command line of a program, with --help (-h) and --version.
class CommandLine : public Command {
public:
    static constexpr int badUsage = 2;

    // `name` begins messages, for example "katc" or "katc helper".
    CommandLine(const std::string& name, const std::string& version, const std::string& description);
    ~CommandLine();

    // Reads the words after argv[0]; call it once. True: the targets are set, go on. False: end with *status,
    // all output has been printed. That is help or version on standard output (0, or 1 if they cannot be
    // written), or what is wrong on standard error (badUsage).
    bool parse(int argc, const char* const* argv, int* status);

private:
    void printUsageError(const char* sentence) const;

    const std::string name_;
    std::unique_ptr<CLI::App> owned_;
};

}  // namespace tools

#endif
