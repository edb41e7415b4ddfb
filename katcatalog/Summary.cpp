#include "Summary.h"

#include <cstdio>

namespace katcatalog {

Summary::Summary(const Arguments& arguments, const std::string& name, const std::string& title)
    : arguments_(arguments) {
    if (isTable()) std::printf("%s: %s\n", name.c_str(), title.c_str());
    json_["catalog"] = name;
}

Summary::~Summary() {
    if (!arguments_.quiet && arguments_.json) std::printf("%s\n", tools::jsonText(json_, 2).c_str());
}

void Summary::line(const char* key, std::uint64_t number, const char* text, bool always) {
    json_[key] = number;
    if (isTable() && (always || number > 0))
        std::printf("%12llu %s\n", static_cast<unsigned long long>(number), text);
}

void Summary::reading(const Counts& counts) {
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

}  // namespace katcatalog
