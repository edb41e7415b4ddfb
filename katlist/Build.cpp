#include "Build.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>

#include "ItemStore.h"
#include "KatdUtil/Utils.h"
#include "Resolve.h"
#include "listreader/Reader.h"

namespace katlist {

using KATD_SPACE::Utils;
using listreader::Reader;
using listreader::Scope;

namespace {

// katd's numbers have 32 bits; its buffer is three bytes longer than the size in the first line.
constexpr std::uint64_t countLimit = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t sizeLimit = countLimit - 3;

class Builder {
public:
    // Creates the output file first: if it cannot be written, that shows before the work.
    explicit Builder(const BuildOptions& options)
        : options_(options),
          progress_(options.quiet),
          reader_(
              Reader::Options{categoryLimit, options.strict, options.show},
              [this](Entry& entry) { return takeEntry(&entry); }, &progress_),
          file_(options.output),
          resolver_(&items_, sources_, names_, options.show) {}

    void run() {
        readAll();
        resolver_.removeExcepted(exceptions_);
        progress_.begin("sorting");
        resolver_.removeDuplicates();
        if (options_.kind == Kind::urls) resolver_.removeNested(options_.onNested);
        progress_.clear();
        checkSize();
        write();
        if (!options_.quiet) printSummary();
    }

private:
    listreader::CategoryRules categoryRules();
    void readAll();
    const char* takeEntry(Entry* entry);
    bool addBareHost(std::string* text);
    void addForms(char* text, bool isAddress, ItemStore::Record record);
    void checkSize();
    void write();
    void printSummary() const;

    const BuildOptions& options_;
    Progress progress_;
    tools::CategoryNames names_;
    std::vector<Source> sources_;
    ItemStore items_;
    Exceptions exceptions_;
    Reader reader_;
    OutputFile file_;
    Resolver resolver_;
    std::string wwwItem_;     // reused, so that it keeps its memory
    std::size_t source_ = 0;  // index in sources_

    // Counters of the summary.
    std::uint64_t foldersSkipped_ = 0;
    std::uint64_t belowOnly_ = 0;  // entries for subdomains alone
    std::uint64_t withBelow_ = 0;  // hosts whose subdomains the input includes
    std::uint64_t bareHosts_ = 0;
    std::uint64_t www_ = 0;
    std::uint64_t lowered_ = 0;
    std::uint64_t size_ = 0;
    std::string bareExample_;  // one of them
};

listreader::CategoryRules Builder::categoryRules() {
    listreader::CategoryRules rules;
    rules.highest = categoryLimit;
    if (!options_.categories.empty()) {
        listreader::readNames(options_.categories, &names_);
        rules.numberOf = [this](std::string_view name) {
            const auto number = names_.numberOf(name);
            return number ? static_cast<std::int32_t>(*number) : -1;
        };
    }
    if (options_.category.empty()) return rules;
    const auto category = names_.resolve(options_.category);
    if (!category) {
        throw Failure(badUsage, "there is no category " + printable(options_.category) +
                                    ": --category takes a " +
                                    "number from 0 to 255, or a name of the file of --categories");
    }
    rules.otherwise = static_cast<std::int32_t>(*category);
    const bool areFolders =
        std::all_of(options_.inputs.begin(), options_.inputs.end(),
                    [](const std::string& input) { return std::filesystem::is_directory(input); });
    if (rules.numberOf && areFolders)
        throw Failure(badUsage, "--category has no effect: the file of --categories gives folders theirs");
    return rules;
}

void Builder::readAll() {
    const listreader::CategoryRules rules = categoryRules();
    Notes skipped(stderr, options_.show);
    sources_ = findSources(
        options_.inputs, options_.kind == Kind::urls ? listreader::Wanted::urls : listreader::Wanted::domains,
        rules, &skipped);
    skipped.end("folders");
    foldersSkipped_ = skipped.count();
    if (options_.strict && foldersSkipped_ > 0)
        throw Failure(wrong, "a folder has no number: add it to " + options_.categories + " (--strict)");
    if (sources_.size() > std::numeric_limits<std::uint16_t>::max())
        throw Failure(failed, "there are more than 65535 inputs: build from fewer at once");
    for (source_ = 0; source_ < sources_.size(); ++source_)
        reader_.read(sources_[source_]);
    reader_.end();
}

const char* Builder::takeEntry(Entry* entry) {
    if (const char* reason = toItem(options_.kind, entry)) return reason;
    if (entry->isException) {
        const std::string host = entry->text.substr(0, entry->text.find_first_of("/:"));
        exceptions_[{static_cast<std::uint8_t>(entry->category), host}] |= entry->scope != Scope::host;
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
    addForms(entry->text.data(), entry->hasAddress, record);
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
        wwwItem_.assign("www.").append(text);
        items_.add(wwwItem_.c_str(), record);
        ++www_;
    }
    if (!capitals) return;
    // A capital letter came from an escape. A URL with the letter itself is made lower case by katd.
    Utils::toLower(text);
    items_.add(text, record);
    ++lowered_;
    if (!www) return;
    Utils::toLower(wwwItem_.data());
    items_.add(wwwItem_.c_str(), record);
    ++lowered_;
}

void Builder::checkSize() {
    for (const ItemStore::Record& record : items_.records)
        size_ += std::strlen(items_.text(record)) + 1;
    const std::uint64_t count = items_.records.size();
    if (count == 0) {
        throw Failure(
            wrong, "no item is left, and katd refuses an empty list: " + options_.output + " is unchanged");
    }
    if (count > countLimit || size_ > sizeLimit) {
        throw Failure(wrong, "the list would have " + std::to_string(count) + " items of " +
                                 std::to_string(size_) + " bytes, and katd holds at most " +
                                 std::to_string(countLimit) + " items of " + std::to_string(sizeLimit) +
                                 " bytes: leave some inputs out");
    }
    if (count < options_.minItems) {
        throw Failure(wrong, "the list would have " + std::to_string(count) + " items, fewer than " +
                                 std::to_string(options_.minItems) + ": " + options_.output +
                                 " is unchanged (--min-items)");
    }
    if (options_.maxShrink >= 100 || !file_.replaces()) return;
    LineFile old(options_.output, LineFile::Source::listFile);
    const std::uint64_t before = old.next() ? std::strtoull(old.text, nullptr, 10) : 0;
    if (count * 100 >= before * (100 - options_.maxShrink)) return;
    throw Failure(wrong, "the list would have " + std::to_string(count) + " items instead of " +
                             std::to_string(before) + ", which is more than " +
                             std::to_string(options_.maxShrink) + " per cent fewer: " + options_.output +
                             " is unchanged (--max-shrink)");
}

void Builder::write() {
    file_.write(std::to_string(items_.records.size()) + "|" + std::to_string(size_) + "\n");
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
    line(counts.empty, "comments, empty lines and headers");
    line(counts.ownNames, "names of the machine itself in hosts files left out");
    line(foldersSkipped_, "folders without a number left out");
    line(counts.bad, "bad lines skipped", true);
    line(counts.entries, "items read", true);
    line(exceptions_.size(), "exceptions read");
    line(belowOnly_, "items for subdomains only left out: katd's lists hold exact hosts");
    line(withBelow_, "items for a host and its subdomains read as the host alone");
    line(www_, "www. names added");
    line(lowered_, "lower-case spellings added");
    const bool isSkipped = options_.bareHosts == BareHosts::skip;
    if (isSkipped) line(bareHosts_, "hosts without a path left out");
    const Resolved& resolved = resolver_.result();
    line(resolved.excepted, "items removed by exceptions");
    line(resolved.duplicates, "duplicates dropped");
    line(resolved.conflicts, "duplicates of another category dropped");
    line(resolved.below, "items that begin with another of the same category dropped");
    line(resolved.belowOther - resolved.nestedKept,
         "items that begin with another of a different category dropped");
    line(resolved.nestedKept,
         "items that begin with another of a different category kept: katd misses some URLs");
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
