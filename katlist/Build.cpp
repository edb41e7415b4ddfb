#include "Build.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "Console.h"
#include "Inputs.h"
#include "ItemStore.h"
#include "KatdUtil/Utils.h"
#include "LineFile.h"
#include "OutputFile.h"
#include "Resolve.h"

namespace katlist {

using KATD_SPACE::Utils;

namespace {

// What katd's 32-bit numbers hold; its buffer is three bytes longer than the size in the first line.
constexpr std::uint64_t countLimit = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t sizeLimit = countLimit - 3;
constexpr std::size_t categoryEnd = 3;  // of an item line: there is the bar

// Names in hosts files that are about the machine itself.
constexpr const char* ownNames[] = {"localhost",      "localhost.localdomain", "local",
                                    "broadcasthost",  "ip6-localhost",         "ip6-loopback",
                                    "ip6-localnet",   "ip6-mcastprefix",       "ip6-allnodes",
                                    "ip6-allrouters", "ip6-allhosts",          "0.0.0.0"};

bool isOwnName(const char* name) {
    return std::any_of(std::begin(ownNames), std::end(ownNames),
                       [name](const char* own) { return strcasecmp(own, name) == 0; });
}

bool isIpAddress(const std::string& text) {
    in6_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &address) == 1;
}

// "12|345", the first line of a list file, and not an item of digits with its category: so many items can
// have so many bytes, and an item line comes behind it.
bool isHeader(const char* text, LineFile* file) {
    const std::size_t digits = std::strspn(text, "0123456789");
    if (digits == 0 || digits > 10 || *text == '0' || text[digits] != '|') return false;
    const char* const size = text + digits + 1;
    if (*size == '\0' || !Utils::isDigit(size) || std::strlen(size) > 10) return false;
    if (std::strtoull(size, nullptr, 10) > std::strtoull(text, nullptr, 10) * (itemLimit + 1)) return false;
    const char* const next = file->peek();
    return next != nullptr && std::strlen(next) > categoryEnd && next[categoryEnd] == '|';
}

class Builder {
public:
    // What would keep the list from being written shows before long work.
    explicit Builder(const BuildOptions& options)
        : options_(options), bad_(stderr, options.show), file_(options.output) {}

    void run() {
        readAll();
        progress_.begin("sorting");
        items_.sort();
        progress_.clear();
        removeDuplicates(&items_, sources_, options_.show, &resolved_);
        if (options_.kind == Kind::urls)
            removeNested(&items_, sources_, options_.onNested, options_.show, &resolved_);
        write();
        if (!options_.quiet) printSummary();
    }

private:
    void readAll();
    void readSource(const Source& source);
    void takeLine(LineFile* file);
    void takeHosts(char* names, std::int32_t category);
    void takeItem(char* text, std::int32_t category);
    void addForms(char* text, ItemStore::Record record);
    bool addBareHost(char* text, const ItemStore::Record& record);
    void badLine(const std::string& text, const char* reason);
    void write();
    void printSummary() const;

    const BuildOptions& options_;
    Progress progress_;
    std::vector<Source> sources_;
    ItemStore items_;
    Notes bad_;
    OutputFile file_;
    Resolved resolved_;
    std::string item_;  // a form of an item that is being made

    // The line at hand.
    const LineFile* input_ = nullptr;
    std::size_t source_ = 0;      // index in sources_
    bool isListFile_ = false;     // its file began with the first line of a list
    std::int32_t category_ = -1;  // of its file

    // Counters of the summary.
    std::uint64_t lines_ = 0;
    std::uint64_t empty_ = 0;  // comments, empty lines, first lines of list files
    std::uint64_t read_ = 0;   // items
    std::uint64_t own_ = 0;    // names about the machine itself
    std::uint64_t foldersSkipped_ = 0;
    std::uint64_t bareHosts_ = 0;
    std::uint64_t www_ = 0;
    std::uint64_t lowered_ = 0;
    std::uint64_t size_ = 0;
    std::string bareExample_;
};

void Builder::readAll() {
    const Mapping mapping = options_.map.empty() ? Mapping() : Mapping::load(options_.map);
    Notes skipped(stderr, options_.show);
    sources_ = findSources(options_.inputs, options_.kind, options_.category, mapping, &skipped);
    skipped.end("folders");
    foldersSkipped_ = skipped.count();
    if (options_.strict && foldersSkipped_ > 0)
        throw Failure(wrong, "a folder has no number: add it to " + options_.map + " (--strict)");
    if (sources_.size() > std::numeric_limits<std::uint16_t>::max())
        throw Failure(failed, "there are more than 65535 inputs: build from fewer at once");
    for (source_ = 0; source_ < sources_.size(); ++source_)
        readSource(sources_[source_]);
    bad_.end("bad lines");
}

void Builder::readSource(const Source& source) {
    LineFile file(source.path);
    input_ = &file;
    isListFile_ = false;
    category_ = source.category;
    while (file.next()) {
        progress_.step("lines read", ++lines_);
        takeLine(&file);
    }
    input_ = nullptr;
}

void Builder::takeLine(LineFile* file) {
    char* line = file->text;
    if (std::memchr(line, '\0', file->length) != nullptr) return badLine(line, "it holds a zero byte");
    if (file->number == 1 && std::strncmp(line, "\xef\xbb\xbf", 3) == 0) line += 3;  // an editor's mark
    const char* first = Utils::FirstChar(Utils::rtrim(line));
    if (file->number == 1) isListFile_ = isHeader(first, file);
    if (*first == '\0' || *first == '#' || (file->number == 1 && isListFile_)) {
        ++empty_;
        return;
    }
    std::int32_t category = category_;
    char* bar = std::strchr(line, '|');
    const std::string before(line, bar == nullptr ? 0 : static_cast<std::size_t>(bar - line));
    if (bar != nullptr && before.find_first_not_of(" \t+-0123456789") == std::string::npos &&
        before.find_first_of("0123456789") != std::string::npos) {
        category = toCategory(before);
        if (category < 0) return badLine(line, "its category is no number from 0 to 255");
        line = bar + 1;
        if (isListFile_) return takeItem(line, category);
    } else if (isListFile_) {
        return badLine(line, "it is no item line, as the others of this list are");
    }
    for (char* mark = line; (mark = std::strchr(mark, '#')) != nullptr; ++mark) {
        if (mark > line && (mark[-1] == ' ' || mark[-1] == '\t')) {
            *mark = '\0';
            break;
        }
    }
    Utils::trim(line);
    const std::size_t word = std::strcspn(line, " \t");
    if (line[word] != '\0' && isIpAddress(std::string(line, word))) return takeHosts(line + word, category);
    takeItem(line, category);
}

// The names of a line of a hosts file.
void Builder::takeHosts(char* names, std::int32_t category) {
    char* rest = nullptr;
    for (char* name = strtok_r(names, " \t", &rest); name != nullptr;
         name = strtok_r(nullptr, " \t", &rest)) {
        if (isOwnName(name)) {
            ++own_;
        } else {
            takeItem(name, category);
        }
    }
}

void Builder::takeItem(char* text, std::int32_t category) {
    if (category < 0) return badLine(text, "it names no category, and no --category is given");
    const std::string written(text);
    const char* reason = isListFile_                   ? storedToItem(options_.kind, text)
                         : options_.kind == Kind::urls ? toUrlItem(text)
                                                       : toHostItem(text);
    if (reason != nullptr) return badLine(written, reason);
    ++read_;
    ItemStore::Record record{};
    record.category = static_cast<std::uint8_t>(category);
    record.file = static_cast<std::uint16_t>(source_);
    record.line = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(input_->number, std::numeric_limits<std::uint32_t>::max()));
    if (options_.kind == Kind::urls && std::strchr(text, '/') == nullptr && !addBareHost(text, record))
        return;
    addForms(text, record);
}

// False when the item goes no further.
bool Builder::addBareHost(char* text, const ItemStore::Record& record) {
    ++bareHosts_;
    if (bareExample_.empty()) bareExample_ = printable(text);
    if (options_.bareHosts != BareHosts::slash) return options_.bareHosts == BareHosts::keep;
    std::string withSlash = std::string(text) + "/";
    addForms(withSlash.data(), record);
    return false;
}

// The item, and what is made of it.
void Builder::addForms(char* text, ItemStore::Record record) {
    items_.add(text, record);
    record.derived = true;
    const bool capitals = hasCapitals(text);
    const bool www = options_.withWww && std::strncmp(text, "www.", 4) != 0 && !isAddress(text);
    if (www) {
        item_ = std::string("www.") + text;
        items_.add(item_.c_str(), record);
        ++www_;
    }
    if (!capitals) return;
    // A capital letter came from an escape. Where a URL has the letter itself, katd makes it a small one.
    Utils::toLower(text);
    items_.add(text, record);
    ++lowered_;
    if (!www) return;
    Utils::toLower(item_.data());
    items_.add(item_.c_str(), record);
    ++lowered_;
}

void Builder::badLine(const std::string& text, const char* reason) {
    const std::string place = input_->name + ":" + std::to_string(input_->number) + ": ";
    if (options_.strict) throw Failure(wrong, place + reason + ": [" + printable(text) + "] (--strict)");
    if (bad_.shows()) {
        bad_.add(place + "skipped, " + reason + ": [" + printable(text) + "]");
    } else {
        bad_.add();
    }
}

void Builder::write() {
    for (const ItemStore::Record& record : items_.records)
        size_ += std::strlen(items_.text(record)) + 1;
    const std::uint64_t count = items_.records.size();
    if (count == 0) {
        throw Failure(wrong, "no item is left, and katd takes no empty list: " + options_.output +
                                 " is left as it was");
    }
    if (count > countLimit || size_ > sizeLimit) {
        throw Failure(wrong, "the list would have " + std::to_string(count) + " items of " +
                                 std::to_string(size_) + " bytes, and katd holds at most " +
                                 std::to_string(countLimit) + " items of " + std::to_string(sizeLimit) +
                                 " bytes: leave some inputs out");
    }
    file_.write(std::to_string(count) + "|" + std::to_string(size_) + "\n");
    std::uint64_t written = 0;
    for (const ItemStore::Record& record : items_.records) {
        char category[8];
        std::snprintf(category, sizeof category, "%03u|", static_cast<unsigned>(record.category));
        file_.write(category, 4);
        const char* text = items_.text(record);
        file_.write(text, std::strlen(text));
        file_.write("\n", 1);
        progress_.step("items written", ++written);
    }
    progress_.begin("syncing");
    file_.commit();
    progress_.clear();
}

void Builder::printSummary() const {
    std::printf("%s: %zu items, %llu bytes\n", options_.output.c_str(), items_.records.size(),
                static_cast<unsigned long long>(size_));
    const auto line = [](std::uint64_t number, const char* text, bool always = false) {
        if (number > 0 || always) std::printf("%12llu %s\n", static_cast<unsigned long long>(number), text);
    };
    line(lines_, "lines read", true);
    line(empty_, "comments, empty lines and first lines of lists");
    line(own_, "names of hosts files about the machine itself left out");
    line(foldersSkipped_, "folders without a number left out");
    line(bad_.count(), "bad lines skipped", true);
    line(read_, "items read", true);
    line(www_, "www. names added");
    line(lowered_, "spellings in small letters added");
    const bool isSkipped = options_.bareHosts == BareHosts::skip;
    if (isSkipped) line(bareHosts_, "hosts without a path left out");
    line(resolved_.duplicates, "duplicates dropped");
    line(resolved_.conflicts, "conflicting duplicates dropped: another category, the first one stays");
    line(resolved_.below, "items below another of the same category dropped");
    line(resolved_.belowOther - resolved_.nestedKept, "items below another of a different category dropped");
    line(resolved_.nestedKept,
         "items below another of a different category kept: katd misses some URLs of each pair");
    line(items_.records.size(), "items kept", true);
    if (bareHosts_ > 0 && options_.bareHosts == BareHosts::keep) {
        std::printf(
            "Note: %llu items are hosts without a path. As prefixes they match longer names too: %s also\n"
            "matches %s.example.net. Put hosts into a list of domains, or choose --bare-hosts.\n",
            static_cast<unsigned long long>(bareHosts_), bareExample_.c_str(), bareExample_.c_str());
    }
}

}  // namespace

void build(const BuildOptions& options) {
    Builder(options).run();
}

}  // namespace katlist
