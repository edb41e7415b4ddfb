// Entries of lists in the formats in which they are published.
//
// Each line is recognised by itself:
//   a.example  https://a.example/x  .a.example   a host or a URL
//   12|a.example                                 the same with its category
//   COUNT|SIZE on line 1                         a list file of katd, whose items follow
//   0.0.0.0 a.example b.example                  a hosts file; names of the machine itself are left out
//   ||a.example^   @@||a.example^                filter rules for a host, and exceptions from them
//   address=/a.example/   server=/a.example/     dnsmasq; "server=/a.example/#" is an exception
//   a.example CNAME .   *.a.example A 0.0.0.0    zone records; "CNAME rpz-passthru." is an exception
//   local-zone: "a.example" always_nxdomain      Unbound; transparent zones are exceptions; also local-data:
// Comments begin with # (at the start or behind a blank), ! or ;. Anything else is a bad line, as is a rule
// that says more than a host: bad lines are skipped, counted and shown.
#ifndef LISTREADER_READER_H
#define LISTREADER_READER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "listreader/Console.h"
#include "listreader/Entry.h"
#include "listreader/LineFile.h"
#include "listreader/Sources.h"

namespace listreader {

// One Reader reads any number of sources, in one thread. Readers in several threads may share `progress`.
class Reader {
public:
    struct Options {
        std::int32_t highestCategory = 255;
        bool strict = false;                       // the first bad line throws Failure
        std::uint64_t show = 10;                   // bad lines to print
        std::vector<std::string>* kept = nullptr;  // where to put these lines instead of printing them
    };
    struct Counts {
        std::uint64_t lines = 0;
        std::uint64_t empty = 0;     // comments, empty lines, headers
        std::uint64_t ownNames = 0;  // names of the machine itself in hosts files
        std::uint64_t bad = 0;       // bad lines; each bad name of a hosts file counts
        std::uint64_t entries = 0;   // taken
    };
    // Takes an entry, which it may change: null if it is taken, otherwise a phrase that says why it is bad.
    using Take = std::function<const char*(Entry& entry)>;

    // `progress` must outlive the Reader.
    Reader(const Options& options, Take take, Progress* progress);

    // Reads a source from its beginning to its end. Throws Failure if it cannot be read, or by strict.
    void read(const Source& source);
    // Call once after the last source: prints how many bad lines were not shown.
    void end() const { bad_.end("bad lines"); }
    Counts counts() const;

private:
    void takeLine(LineFile* file);
    bool takeComment(std::string_view line);
    bool takeFilterRule(std::string_view line);
    bool takeDnsmasq(std::string_view line);
    bool takeUnbound(std::string_view line);
    bool takeRecord(std::string_view line, bool isContinued);
    void takeOwner(std::string_view owner, bool isException);
    void takeHosts(std::string_view names);
    void takeHost(std::string_view host, Scope scope, bool isException);
    void takePlain(std::string_view text);
    void hand(std::string_view written);
    void badLine(std::string_view text, const std::string& reason);

    const Options options_;
    const Take take_;
    Progress* const progress_;
    Notes bad_;
    Counts counts_;
    Entry entry_;  // reused, so that its string keeps its memory

    // Of the source at hand.
    const LineFile* file_ = nullptr;
    std::int32_t sourceCategory_ = -1;
    bool isListFile_ = false;     // it began with the header of a list file of katd
    bool isInRecord_ = false;     // within the parentheses of a zone record
    std::string origin_;          // of its zone, if it says so: without the dot at the end
    std::int32_t category_ = -1;  // of the line at hand
};

}  // namespace listreader

#endif
