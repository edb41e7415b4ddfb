// Reads lists for a catalogue.
#ifndef KATCATALOG_INPUTS_H
#define KATCATALOG_INPUTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Memory.h"
#include "catalog/Writer.h"
#include "listreader/Reader.h"
#include "tools/CategoryNames.h"

namespace katcatalog {

// Counters for the summary.
struct Counts {
    listreader::Reader::Counts read;
    std::uint64_t foldersSkipped = 0;
    std::uint64_t exceptions = 0;
    std::uint64_t belowOnly = 0;
    std::uint64_t suffixes = 0;     // refused
    std::uint64_t beyondReply = 0;  // with a category above 255, which katd's replies truncate
};

// Reads inputs into a Builder. Throws listreader::Failure.
class Inputs {
public:
    explicit Inputs(const Arguments& arguments);

    // A file to be read, and the number of its source.
    struct File {
        listreader::Source file;
        std::uint16_t source;
    };
    using Files = std::vector<File>;

    // `known` are the sources that the catalogue has: those of the same name keep their number; the others
    // are new. Where `otherwise` is given, it is the category of inputs that have none.
    Files find(const std::vector<std::string>& inputs, const catalog::Sources& known, std::int32_t otherwise);
    // Reads several files at a time if there are processors for it; the result is the same. Adds to `memory`,
    // if it is given, what the files were when they were read.
    void read(const Files& files, catalog::Builder* builder, listreader::Progress* progress,
              std::vector<KnownList>* memory = nullptr);
    void read(const std::vector<std::string>& inputs, const catalog::Sources& known, std::int32_t otherwise,
              catalog::Builder* builder, listreader::Progress* progress) {
        read(find(inputs, known, otherwise), builder, progress);
    }
    // Whether a file is named twice.
    static bool hasRepeats(const Files& files);
    // A text that differs if the same lists, with the same categories, may be read in another way.
    std::string rules() const;

    const Counts& counts() const { return counts_; }
    // Those that were read.
    const catalog::Sources& sources() const { return sources_; }
    // Of the file of --map.
    const catalog::CategoryNames& names() const { return names_; }

private:
    const Arguments& arguments_;
    tools::CategoryNames map_{static_cast<std::uint32_t>(highestCategory)};
    catalog::CategoryNames names_;
    catalog::Sources sources_;
    Counts counts_;
};

}  // namespace katcatalog

#endif
