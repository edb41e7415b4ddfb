// What a command that reads lists prints at its end.
#ifndef KATCATALOG_SUMMARY_H
#define KATCATALOG_SUMMARY_H

#include <string>

#include "Inputs.h"
#include "tools/Json.h"

namespace katcatalog {

// A table, or one JSON object when it is destroyed, or nothing, as the arguments say.
class Summary {
public:
    // `name` is that of the catalogue or store.
    Summary(const Arguments& arguments, const std::string& name, const std::string& title);
    ~Summary();
    Summary(const Summary&) = delete;
    Summary& operator=(const Summary&) = delete;

    // A table has the line if `number` is not 0, or `always`.
    void line(const char* key, std::uint64_t number, const char* text, bool always = false);
    void reading(const Counts& counts);

private:
    bool isTable() const { return !arguments_.quiet && !arguments_.json; }

    const Arguments& arguments_;
    tools::Json json_;
};

}  // namespace katcatalog

#endif
