// The rules file of the stand-in engine; asapsdk.h describes its grammar.
#ifndef ASAPSDK_RULES_H
#define ASAPSDK_RULES_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <istream>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Text.h"

namespace asapsdk {

// The outcome of one call.
struct Outcome {
    enum Kind { ok, categories, unknown, final, fail, partial, hang };

    Kind kind = ok;
    std::uint32_t delayMs = 0;  // pause before anything else
    Categories numbers;         // of categories
    Failure failure;            // of fail and partial

    // In the syntax of a rule, without the description.
    std::string toText() const;
};

// The rules of one file. Not thread-safe.
class Rules {
public:
    // Adds the rules of a text. Ignores invalid lines and reports each on standard error, under `name`.
    void read(std::istream& text, const std::string& name);

    // The next outcome for a normalised URL, or for the function "create", "load" or "save"; nothing without
    // a rule.
    std::optional<Outcome> takeForUrl(const std::string& url);
    std::optional<Outcome> takeForFunction(const std::string& function);

private:
    struct Rule {
        std::vector<Outcome> outcomes;  // never empty
        std::size_t next = 0;           // index of the next outcome
    };
    using Table = std::map<std::string, Rule, std::less<>>;  // by subject

    // Adds the rule of one line. Returns null, or what is wrong with it.
    const char* add(std::string_view line);

    static Outcome take(Rule* rule);

    Table urls_;
    Table prefixes_;
    Table hosts_;
    Table functions_;
};

// The rules of the file named by ASAPSDK_RULES, read again when it changes. Thread-safe: each call takes its
// own outcome of a sequence.
class RulesFile {
public:
    std::optional<Outcome> takeForUrl(const std::string& url);
    std::optional<Outcome> takeForFunction(const std::string& function);

private:
    // The identity and version of a file. If equal, there is nothing to read.
    struct State {
        std::string path;
        int error = 0;  // errno of a file that could not be read
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        time_t seconds = 0;
        long nanoseconds = 0;

        bool operator==(const State& other) const;
    };

    static State stateOf(const std::string& path, int error, const struct stat& file);

    // REQUIRES: mutex_ is held.
    void refresh();
    // Reads the file into rules_ and returns its state.
    State readFile(const std::string& path);

    std::mutex mutex_;
    State state_;  // of rules_; guarded by mutex_
    Rules rules_;  // guarded by mutex_
};

}  // namespace asapsdk

#endif
