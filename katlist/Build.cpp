#include "Build.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "ItemStore.h"
#include "KatdUtil/Utils.h"
#include "Mapping.h"
#include "Resolve.h"
#include "listreader/Reader.h"

namespace katlist {

using KATD_SPACE::Utils;
using listreader::EntryKind;
using listreader::Reader;
using listreader::Scope;

namespace {

// What katd's 32-bit numbers hold; its buffer is three bytes longer than the size in the first line.
constexpr std::uint64_t countLimit = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t sizeLimit = countLimit - 3;

class Builder {
public:
    // What would keep the list from being written shows before long work.
    explicit Builder(const BuildOptions& options)
        : options_(options),
          reader_(
              Reader::Options{categoryLimit, options.strict, options.show},
              [this](Entry& entry) { return takeEntry(&entry); }, &progress_),
          file_(options.output) {}

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
    const char* takeEntry(Entry* entry);
    bool addBareHost(std::string* text);
    void addForms(char* text, bool isAddress, ItemStore::Record record);
    void write();
    void printSummary() const;

    const BuildOptions& options_;
    Progress progress_;
    std::vector<Source> sources_;
    ItemStore items_;
    Reader reader_;
    OutputFile file_;
    Resolved resolved_;
    std::string item_;        // a form of an item that is being made
    std::size_t source_ = 0;  // index in sources_

    // Counters of the summary.
    std::uint64_t foldersSkipped_ = 0;
    std::uint64_t exceptions_ = 0;
    std::uint64_t belowOnly_ = 0;  // entries for subdomains alone
    std::uint64_t withBelow_ = 0;  // hosts whose subdomains the input includes
    std::uint64_t bareHosts_ = 0;
    std::uint64_t www_ = 0;
    std::uint64_t lowered_ = 0;
    std::uint64_t size_ = 0;
    std::string bareExample_;
};

void Builder::readAll() {
    const Mapping mapping = options_.map.empty() ? Mapping() : Mapping::load(options_.map);
    listreader::CategoryRules rules;
    if (!mapping.all().empty())
        rules.numberOf = [&mapping](std::string_view name) { return mapping.numberOf(std::string(name)); };
    rules.highest = categoryLimit;
    rules.otherwise = options_.category;
    Notes skipped(stderr, options_.show);
    sources_ = findSources(
        options_.inputs, options_.kind == Kind::urls ? listreader::Wanted::urls : listreader::Wanted::domains,
        rules, &skipped);
    skipped.end("folders");
    foldersSkipped_ = skipped.count();
    if (options_.strict && foldersSkipped_ > 0)
        throw Failure(wrong, "a folder has no number: add it to " + options_.map + " (--strict)");
    if (sources_.size() > std::numeric_limits<std::uint16_t>::max())
        throw Failure(failed, "there are more than 65535 inputs: build from fewer at once");
    for (source_ = 0; source_ < sources_.size(); ++source_)
        reader_.read(sources_[source_]);
    reader_.end();
}

const char* Builder::takeEntry(Entry* entry) {
    if (const char* reason = toItem(options_.kind, entry)) return reason;
    if (entry->isException) {
        ++exceptions_;
        return nullptr;
    }
    if (entry->scope == Scope::below) {
        ++belowOnly_;
        return nullptr;
    }
    if (entry->scope == Scope::hostAndBelow) ++withBelow_;
    ItemStore::Record record{};
    record.category = static_cast<std::uint8_t>(entry->category);
    record.file = static_cast<std::uint16_t>(source_);
    record.line = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(entry->line, std::numeric_limits<std::uint32_t>::max()));
    if (options_.kind == Kind::urls && entry->text.find('/') == std::string::npos &&
        !addBareHost(&entry->text))
        return nullptr;
    addForms(entry->text.data(), entry->kind == EntryKind::address, record);
    return nullptr;
}

// False if the host is left out.
bool Builder::addBareHost(std::string* text) {
    ++bareHosts_;
    if (bareExample_.empty()) bareExample_ = printable(*text);
    if (options_.bareHosts == BareHosts::slash) *text += '/';
    return options_.bareHosts != BareHosts::skip;
}

// Adds the item and its other forms.
void Builder::addForms(char* text, bool isAddress, ItemStore::Record record) {
    items_.add(text, record);
    record.derived = true;
    const bool capitals = hasCapitals(text);
    const bool www = options_.withWww && !isAddress && std::strncmp(text, "www.", 4) != 0;
    if (www) {
        item_ = std::string("www.") + text;
        items_.add(item_.c_str(), record);
        ++www_;
    }
    if (!capitals) return;
    // A capital letter came from an escape. katd puts the letter itself, in a URL, in lower case.
    Utils::toLower(text);
    items_.add(text, record);
    ++lowered_;
    if (!www) return;
    Utils::toLower(item_.data());
    items_.add(item_.c_str(), record);
    ++lowered_;
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
    const Reader::Counts counts = reader_.counts();
    line(counts.lines, "lines read", true);
    line(counts.empty, "comments, empty lines and first lines of lists");
    line(counts.ownNames, "names of hosts files about the machine itself left out");
    line(foldersSkipped_, "folders without a number left out");
    line(counts.bad, "bad lines skipped", true);
    line(counts.entries, "items read", true);
    line(exceptions_, "exceptions left out");
    line(belowOnly_, "items for subdomains alone left out: katd's lists hold exact hosts");
    line(withBelow_, "items for a host and its subdomains read as the host alone");
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
