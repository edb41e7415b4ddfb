// What a command that reads lists prints at its end.
#ifndef KATCATALOG_SUMMARY_H
#define KATCATALOG_SUMMARY_H

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "Inputs.h"

namespace katcatalog {

// A table, or one JSON object when it is destroyed, or nothing, as the arguments say.
class Summary {
public:
    // `name` is that of the catalogue or store.
    Summary(const Arguments& arguments, const std::string& name, const std::string& title)
        : arguments_(arguments) {
        if (isTable()) std::printf("%s: %s\n", name.c_str(), title.c_str());
        json_["catalog"] = name;
    }
    ~Summary() {
        if (!arguments_.quiet && arguments_.json)
            std::printf("%s\n", json_.dump(2, ' ', false, handler).c_str());
    }
    Summary(const Summary&) = delete;
    Summary& operator=(const Summary&) = delete;

    void line(const char* key, std::uint64_t number, const char* text, bool always = false) {
        json_[key] = number;
        if (isTable() && (always || number > 0))
            std::printf("%12llu %s\n", static_cast<unsigned long long>(number), text);
    }
    void reading(const Counts& counts) {
        line("lines", counts.read.lines, "lines read", true);
        line("comments", counts.read.empty, "comments, empty lines and first lines of lists");
        line("own_names", counts.read.ownNames, "names of hosts files about the machine itself left out");
        line("folders_skipped", counts.foldersSkipped, "folders without a number left out");
        line("bad_lines", counts.read.bad, "bad lines skipped", true);
        line("public_suffixes", counts.suffixes, "of these public suffixes");
        line("read_entries", counts.read.entries, "entries read", true);
        line("exceptions", counts.exceptions, "of these exceptions");
        line("below_only", counts.belowOnly, "for subdomains alone, taken for the host as well");
        line("beyond_reply", counts.beyondReply,
             "with a category above 255, of which katd's replies hold the low byte alone");
    }

private:
    static constexpr auto handler = nlohmann::json::error_handler_t::replace;
    bool isTable() const { return !arguments_.quiet && !arguments_.json; }

    const Arguments& arguments_;
    nlohmann::ordered_json json_;
};

}  // namespace katcatalog

#endif
