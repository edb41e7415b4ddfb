// The output of katc.
#ifndef KATC_RESULTPRINTER_H
#define KATC_RESULTPRINTER_H

#include <string>
#include <string_view>

#include "katclient.h"
#include "tools/CategoryNames.h"

namespace katc {

// Prints a sentence, given without its full stop, on standard error.
void report(std::string_view sentence);

// Buffers lines for standard output. Not thread-safe.
class ResultPrinter {
public:
    // `names` may be null: categories are printed as numbers then. It must outlive the object.
    ResultPrinter(bool json, const tools::CategoryNames* names) : json_(json), names_(names) {}

    // Adds a line: the URL, a tab, "known" or "unknown", a tab, and the categories separated by commas; or a
    // JSON object. Control characters of URL and names are escaped.
    void add(std::string_view url, const katclient_answer& answer);
    // Adds a JSON object for a URL without an answer, or reports it on standard error at once. `reason` is a
    // sentence without its full stop.
    void addFailure(std::string_view url, std::string_view reason);
    // Writes what was added. False, with a report, if that fails.
    bool write();

private:
    const bool json_;
    const tools::CategoryNames* const names_;
    std::string text_;
};

}  // namespace katc

#endif
