// The rules file: what the stand-in engine answers. The grammar stands in asapsdk.h.
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

// What one call does.
struct Outcome {
    enum Kind { ok, categories, unknown, final, fail, partial, hang };

    Kind kind = ok;
    std::uint32_t delayMs = 0;  // pause before anything else
    Categories numbers;         // of categories
    Failure failure;            // of fail and partial

    // As a rule has it, with the description left out.
    std::string toText() const;
};

// The rules of one file. Not thread-safe.
class Rules {
public:
    // Adds the rules of a text. A line that is none is left out and named on standard error, with `name` for
    // the text.
    void read(std::istream& text, const std::string& name);

    // The next outcome for a normalised URL, or for the function "create", "load" or "save"; none without a
    // rule.
    std::optional<Outcome> takeForUrl(const std::string& url);
    std::optional<Outcome> takeForFunction(const std::string& function);

private:
    struct Rule {
        std::vector<Outcome> outcomes;  // never empty
        std::size_t next = 0;           // outcome of the next call
    };
    using Table = std::map<std::string, Rule, std::less<>>;  // by subject

    // Adds the rule of one line; the reason why it is none, or null.
    const char* add(std::string_view line);

    static Outcome take(Rule* rule);

    Table urls_;
    Table prefixes_;
    Table hosts_;
    Table functions_;
};

// The rules of the file that ASAPSDK_RULES names, read again when it changes. Any thread may take outcomes;
// two calls never get the same place of a sequence.
class RulesFile {
public:
    std::optional<Outcome> takeForUrl(const std::string& url);
    std::optional<Outcome> takeForFunction(const std::string& function);

private:
    // Which file, and which state of it. Equal means: nothing to read.
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
    // Reads the file at the path into rules_; the state that was read.
    State readFile(const std::string& path);

    std::mutex mutex_;
    State state_;  // guarded by mutex_: of what rules_ holds
    Rules rules_;  // guarded by mutex_
};

}  // namespace asapsdk

#endif
