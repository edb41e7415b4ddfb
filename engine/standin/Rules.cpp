#include "Rules.h"

#include <cstdio>
#include <deque>

namespace asapsdk {

namespace {

struct Word {
    std::string text;
    bool quoted = false;

    bool is(std::string_view plain) const { return !quoted && text == plain; }
};
using Words = std::deque<Word>;

constexpr std::string_view blanks = " \t\r";

// Splits at blanks; a word in double quotes may contain blanks. False if the closing quote is missing.
bool split(std::string_view line, Words* words) {
    for (;;) {
        const auto first = line.find_first_not_of(blanks);
        if (first == line.npos) return true;
        line.remove_prefix(first);
        const bool quoted = line[0] == '"';
        if (quoted) line.remove_prefix(1);
        const auto end = quoted ? line.find('"') : line.find_first_of(blanks);
        if (quoted && end == line.npos) return false;
        words->push_back({std::string(line.substr(0, end)), quoted});
        if (end == line.npos) return true;
        line.remove_prefix(quoted ? end + 1 : end);
    }
}

Word takeWord(Words* words) {
    Word word;
    if (!words->empty()) {
        word = words->front();
        words->pop_front();
    }
    return word;
}

// Removes one outcome from the front of the words: for a URL if `ofUrl`, else for that function. Returns
// null, or what is wrong with it.
const char* takeOutcome(Words* words, bool ofUrl, const std::string& function, Outcome* outcome) {
    Word word = takeWord(words);
    if (word.is("delay")) {
        if (!parseNumber(takeWord(words).text, &outcome->delayMs))
            return "bad number of milliseconds after delay";
        word = takeWord(words);
    }
    if (word.is("hang")) {
        outcome->kind = Outcome::hang;
        return nullptr;
    }
    const bool partial = !ofUrl && function == "save" && word.is("partial");
    if (partial || word.is("fail")) {
        outcome->kind = partial ? Outcome::partial : Outcome::fail;
        if (!parseNumber(takeWord(words).text, &outcome->failure.type)) return "bad type of a failure";
        if (!parseNumber(takeWord(words).text, &outcome->failure.code)) return "bad code of a failure";
        const Word text = takeWord(words);
        if (!text.quoted) return "a failure's text must stand in \"\"";
        outcome->failure.text = text.text;
        return nullptr;
    }
    if (!ofUrl) {
        outcome->kind = Outcome::ok;
        return word.is("ok") ? nullptr : "unknown outcome of a function";
    }
    if (word.is("unknown") || word.is("final")) {
        outcome->kind = word.text == "final" ? Outcome::final : Outcome::unknown;
        return nullptr;
    }
    outcome->kind = Outcome::categories;
    return !word.quoted && parseCategories(word.text, &outcome->numbers) ? nullptr
                                                                         : "unknown outcome of a URL";
}

}  // namespace

std::string Outcome::toText() const {
    std::string delay = delayMs == 0 ? "" : "delay " + std::to_string(delayMs) + " ";
    const auto withFailure = [this](const char* word) {
        return std::string(word) + " " + std::to_string(failure.type) + " " + std::to_string(failure.code);
    };
    switch (kind) {
        case ok:
            return delay + "ok";
        case categories:
            return delay + asapsdk::toText(numbers);
        case unknown:
            return delay + "unknown";
        case final:
            return delay + "final";
        case fail:
            return delay + withFailure("fail");
        case partial:
            return delay + withFailure("partial");
        case hang:
            return delay + "hang";
    }
    return delay;
}

void Rules::read(std::istream& text, const std::string& name) {
    std::string line;
    for (unsigned number = 1; std::getline(text, line); ++number) {
        const auto first = line.find_first_not_of(blanks);
        if (first == line.npos || line[first] == '#') continue;
        if (const char* const reason = add(line)) {
            std::fprintf(stderr, "asapsdk: %s:%u: %s; the line is ignored\n", name.c_str(), number, reason);
        }
    }
}

const char* Rules::add(std::string_view line) {
    Words words;
    if (!split(line, &words)) return "a '\"' is missing";
    const Word kind = takeWord(&words);
    const bool isFunction = kind.is("create") || kind.is("load") || kind.is("save");
    Table* table = &functions_;
    std::string subject = kind.text;
    if (!isFunction) {
        if (kind.is("url")) {
            table = &urls_;
        } else if (kind.is("prefix")) {
            table = &prefixes_;
        } else if (kind.is("host")) {
            table = &hosts_;
        } else {
            return "a rule begins with url, prefix, host, create, load or save";
        }
        subject = normalisedUrl(takeWord(&words).text);
        if (subject.empty()) return "the rule names nothing";
        if (table == &hosts_ && hostOf(subject) != subject) return "that is no host";
    }
    Rule rule;
    do {
        Outcome outcome;
        if (const char* const reason = takeOutcome(&words, !isFunction, subject, &outcome)) return reason;
        rule.outcomes.push_back(std::move(outcome));
        if (words.empty()) {
            return table->emplace(subject, std::move(rule)).second ? nullptr
                                                                   : "an earlier rule has the same subject";
        }
    } while (takeWord(&words).is("then"));
    return "outcomes are separated by then";
}

Outcome Rules::take(Rule* rule) {
    Outcome outcome = rule->outcomes[rule->next];
    if (rule->next + 1 < rule->outcomes.size()) ++rule->next;
    return outcome;
}

std::optional<Outcome> Rules::takeForUrl(const std::string& url) {
    if (const auto found = urls_.find(url); found != urls_.end()) return take(&found->second);
    Rule* longest = nullptr;
    // The table is sorted: a longer prefix of the same URL follows a shorter one.
    for (auto& [prefix, rule] : prefixes_) {
        if (url.compare(0, prefix.size(), prefix) == 0) longest = &rule;
    }
    if (longest != nullptr) return take(longest);
    if (const auto found = hosts_.find(hostOf(url)); found != hosts_.end()) return take(&found->second);
    return std::nullopt;
}

std::optional<Outcome> Rules::takeForFunction(const std::string& function) {
    const auto found = functions_.find(function);
    if (found == functions_.end()) return std::nullopt;
    return take(&found->second);
}

}  // namespace asapsdk
