// How katc prints answers.
#ifndef KATC_ANSWERS_H
#define KATC_ANSWERS_H

#include <string>
#include <string_view>

#include "katclient.h"
#include "tools/CategoryNames.h"

namespace katc {

// Prints a sentence, given without its end, on standard error.
void tell(const std::string& sentence);

// Lines for standard output, gathered. For one thread.
class Answers {
public:
    // `names` may be null: numbers alone then. It must outlive the object.
    Answers(bool json, const tools::CategoryNames* names) : json_(json), names_(names) {}

    // A line of the URL, a tab, "known" or "unknown", a tab, and the categories with commas between; or a
    // JSON object.
    void add(std::string_view url, const katclient_answer& answer);
    // What became of a URL without an answer, a sentence without its end: a JSON object, or told on standard
    // error at once.
    void addFailure(std::string_view url, std::string_view sentence);
    // Writes what was added. False when that fails, which is told on standard error.
    bool write();

private:
    const bool json_;
    const tools::CategoryNames* const names_;
    std::string text_;
};

// One line each, with its end. Bytes of a URL that are no UTF-8 are replaced.
std::string jsonAnswer(std::string_view url, const katclient_answer& answer,
                       const tools::CategoryNames* names);
std::string jsonFailure(std::string_view url, std::string_view sentence);

}  // namespace katc

#endif
