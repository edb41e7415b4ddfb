#include "Read.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "StoreReader.h"
#include "catalog/Writer.h"
#include "listreader/Console.h"
#include "listreader/LineFile.h"
#include "tools/Json.h"
#include "tools/Text.h"

namespace katcatalog {

using catalog::Pair;
using catalog::Reader;
using catalog::Update;
using listreader::Failure;
using tools::Json;
using tools::printable;

namespace {

constexpr const char* foreignRecords =
    ": it has foreign or damaged records, which are ignored; katcatalog push replaces them";

// The names of categories and sources, by number.
class Names {
public:
    Names() = default;
    explicit Names(Update* update) : sources_(update->sources()), categories_(update->categoryNames()) {}

    // Empty if it has none.
    std::string name(unsigned number) const {
        const auto place = categories_.find(static_cast<std::uint16_t>(number));
        return place == categories_.end() ? std::string() : place->second;
    }
    std::string category(unsigned number) const {
        const std::string itsName = name(number);
        return std::to_string(number) + (itsName.empty() ? "" : " (" + printable(itsName) + ")");
    }
    const catalog::Source& source(std::uint16_t number) const {
        static const catalog::Source none{"unknown list", 0, 0};
        const auto place = sources_.find(number);
        return place == sources_.end() ? none : place->second;
    }
    const catalog::Sources& sources() const { return sources_; }

private:
    catalog::Sources sources_;
    catalog::CategoryNames categories_;
};

std::unique_ptr<Update> openForReading(const std::string& path) {
    std::string failure;
    auto update = Update::open(path, &failure, Update::reading);
    if (!update) throw Failure(listreader::failed, failure);
    return update;
}

// An entry that covers a URL, copied from the file or the store.
struct Found {
    char key[catalog::maxKey];
    std::size_t keySize;
    bool instead;
    std::size_t pairCount;
    Pair pairs[catalog::maxEntryCategories];
};

// Preallocated, because a guarded section must not allocate memory.
struct AllFound {
    std::vector<Found> entries = std::vector<Found>(1000);
    std::size_t count = 0;

    static bool add(void* context, const catalog::Covering& covering) {
        const catalog::Value& value = *covering.value;
        Found* const found = static_cast<AllFound*>(context)->next(
            covering.key, (value.flags & catalog::isInstead) != 0, value.pairCount);
        for (std::size_t i = 0; found != nullptr && i < found->pairCount; ++i)
            found->pairs[i] = value.pair(i);
        return found != nullptr;
    }
    void add(std::string_view key, const catalog::SharedEntry& entry) {
        Found* const found = next(key, entry.instead, entry.categories.size());
        for (std::size_t i = 0; found != nullptr && i < found->pairCount; ++i)
            found->pairs[i] = {entry.categories[i], 0};
    }
    // Null if there are too many.
    Found* next(std::string_view key, bool instead, std::size_t pairCount) {
        if (count == entries.size()) return nullptr;
        Found& found = entries[count++];
        found.keySize = std::min(key.size(), sizeof found.key);
        std::memcpy(found.key, key.data(), found.keySize);
        found.instead = instead;
        found.pairCount = std::min(pairCount, catalog::maxEntryCategories);
        return &found;
    }
    static void restart(void* context) { static_cast<AllFound*>(context)->count = 0; }
};

class Finder {
public:
    explicit Finder(const Arguments& arguments) : arguments_(arguments) {
        if (StoreReader::isMeant(arguments)) {
            store_ = std::make_unique<StoreReader>(arguments);
            return;
        }
        names_ = Names(openForReading(arguments.catalog).get());
        std::string failure;
        auto file = catalog::Catalog::open(arguments.catalog, &failure);
        if (!file) throw Failure(listreader::failed, failure);
        reader_ = std::make_unique<Reader>(std::move(file));
    }

    void ask(const std::string& text) {
        catalog::Url url;
        all_.count = 0;
        const char* const reason = catalog::readUrl(text, &url);
        if (reason == nullptr && store_) {
            store_->find(url, [this](std::string_view key, const catalog::SharedEntry& entry) {
                all_.add(key, entry);
            });
        } else if (reason == nullptr &&
                   reader_->visit(url, AllFound::add, AllFound::restart, &all_) != Reader::done)
            throw Failure(listreader::failed,
                          "catalogue " + arguments_.catalog +
                              ": the file is damaged; recreate it with katcatalog import");
        if (all_.count == 0) coveredAll_ = false;
        std::string host = catalog::hostText(url.kind, url.host);
        if (url.kind == catalog::Url::ipv6) host = "[" + host + "]";
        if (url.portGiven) host += ":" + std::to_string(url.port);
        print(text, reason, host + url.path);
    }
    void askLines() {
        listreader::LineFile input("-");
        while (input.next())
            ask(std::string(input.text, std::strcspn(input.text, "\r\n")));
    }
    bool coveredAll() const { return coveredAll_; }

private:
    void print(const std::string& text, const char* reason, const std::string& lookedUp) const {
        Json json;
        json["url"] = text;
        if (reason != nullptr) {
            json["reason"] = reason;
        } else {
            json["looked_up"] = lookedUp;
        }
        std::string table = printable(text) + "\n";
        table += reason == nullptr ? "  looked up as  " + printable(lookedUp) + "\n"
                                   : std::string("  not looked up: ") + reason + "\n";
        if (store_)
            table +=
                "  asked         " + store_->name() + ", which keeps no lists and no names of categories\n";
        std::vector<unsigned> answer;
        bool ended = false;
        json["entries"] = Json::array();
        for (std::size_t i = 0; i < all_.count; ++i) {
            const Found& found = all_.entries[i];
            const std::string name = catalog::keyText({found.key, found.keySize});
            Json entry{{"entry", name}, {"instead", found.instead}, {"counts", !ended}};
            entry["categories"] = Json::array();
            table += "  entry         " + printable(name);
            table += found.instead ? ", an exception: what is less specific does not count" : "";
            table += ended ? ", does not count: below an exception\n" : "\n";
            for (std::size_t n = 0; n < found.pairCount; ++n) {
                const Pair pair = found.pairs[n];
                Json category{{"category", pair.category}};
                table += "    category    " + names_.category(pair.category);
                if (!store_) {
                    const catalog::Source& source = names_.source(pair.source);
                    category["list"] = source.name;
                    category["lines"] = source.lines;
                    table +=
                        ", from " + printable(source.name) + " (" + std::to_string(source.lines) + " lines)";
                }
                if (const std::string itsName = names_.name(pair.category); !itsName.empty())
                    category["name"] = itsName;
                entry["categories"].push_back(category);
                table += "\n";
                if (!ended && std::find(answer.begin(), answer.end(), pair.category) == answer.end())
                    answer.push_back(pair.category);
            }
            if (found.pairCount == 0) table += "    no category\n";
            json["entries"].push_back(entry);
            ended = ended || found.instead;
        }
        if (store_ && store_->foreign() > 0) listreader::tell("store " + store_->name() + foreignRecords);
        json["answer"] = answer;
        table += "  answer        ";
        for (const unsigned category : answer)
            table += (category == answer.front() ? "" : ", ") + names_.category(category);
        if (answer.empty()) table += all_.count == 0 ? "none: no entry covers it" : "none";
        table += "\n";
        std::printf("%s", arguments_.json ? (tools::jsonText(json) + "\n").c_str() : table.c_str());
    }

    const Arguments& arguments_;
    Names names_;  // none of a store
    std::unique_ptr<Reader> reader_;
    std::unique_ptr<StoreReader> store_;  // or else a file is read
    AllFound all_;
    bool coveredAll_ = true;
};

std::string timeText(std::uint64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[64] = "";
    localtime_r(&time, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

void printJson(const Json& json) {
    std::printf("%s\n", tools::jsonText(json, 2).c_str());
}

void printLine(std::uint64_t number, const std::string& text) {
    std::printf("%12llu %s\n", static_cast<unsigned long long>(number), text.c_str());
}

// Counts entries.
class Statistics {
public:
    void add(std::string_view key, bool instead, const std::vector<std::uint16_t>& categories) {
        ++kinds_[key[0] == catalog::hostRecord      ? "hosts"
                 : key[0] == catalog::networkRecord ? "addresses and networks"
                                                    : "paths and ports"];
        if (instead) ++kinds_["exceptions among them"];
        if (categories.empty()) ++kinds_["without a category among them"];
        for (const std::uint16_t category : categories)
            ++byCategory_[category];
    }
    void write(Json* json) const {
        (*json)["kinds"] = kinds_;
        for (const auto& [category, count] : byCategory_)
            (*json)["categories"][std::to_string(category)] = count;
    }
    void print(std::uint64_t entries, const Names& names) const {
        printLine(entries, "entries");
        for (const auto& [kind, count] : kinds_)
            printLine(count, kind);
        std::printf("By category:\n");
        for (const auto& [category, count] : byCategory_)
            printLine(count, names.category(category));
    }

private:
    std::map<unsigned, std::uint64_t> byCategory_;
    std::map<std::string, std::uint64_t> kinds_;
};

void statStore(const Arguments& arguments) {
    StoreReader store(arguments);
    listreader::Progress progress(false);
    Statistics statistics;
    std::uint64_t entries = 0;
    store.forEach([&](std::string_view key, const catalog::SharedEntry& entry) {
        progress.step("reading", ++entries);
        statistics.add(key, entry.instead, entry.categories);
    });
    const bool isUnfinished = store.isUnfinished();
    listreader::Progress::clear();
    if (store.foreign() > 0) listreader::tell("store " + store.name() + foreignRecords);
    if (arguments.json) {
        Json json{{"catalog", store.name()},
                  {"entries", entries},
                  {"version", store.version()},
                  {"unfinished", isUnfinished},
                  {"foreign", store.foreign()}};
        statistics.write(&json);
        printJson(json);
        return;
    }
    std::printf("%s: version %s%s; it keeps no lists and no names of categories\n", store.name().c_str(),
                printable(store.version()).c_str(),
                isUnfinished ? ", with changes of a push that runs or was cut" : "");
    statistics.print(entries, Names());
}

}  // namespace

listreader::ExitStatus find(const Arguments& arguments) {
    Finder finder(arguments);
    for (const std::string& url : arguments.inputs) {
        if (url == "-") {
            finder.askLines();
        } else {
            finder.ask(url);
        }
    }
    return finder.coveredAll() ? listreader::fine : listreader::wrong;
}

void stat(const Arguments& arguments) {
    if (StoreReader::isMeant(arguments)) {
        statStore(arguments);
        return;
    }
    const auto update = openForReading(arguments.catalog);
    const Names names(update.get());
    Statistics statistics;
    std::vector<Pair> pairs;
    update->forEach([&](std::string_view key, const catalog::Value& value) {
        pairs.clear();
        for (std::size_t i = 0; i < value.pairCount; ++i)
            pairs.push_back(value.pair(i));
        statistics.add(key, (value.flags & catalog::isInstead) != 0, catalog::categoriesOf(pairs));
    });
    const catalog::Header header = update->header();
    if (arguments.json) {
        Json json{{"catalog", arguments.catalog},
                  {"entries", header.entries},
                  {"created", header.created},
                  {"changed", header.changed},
                  {"changes", header.changes}};
        statistics.write(&json);
        for (const auto& [number, source] : names.sources())
            json["lists"].push_back(
                {{"name", source.name}, {"lines", source.lines}, {"entries", source.entries}});
        printJson(json);
        return;
    }
    std::printf("%s: made %s, changed %llu times, last %s\n", arguments.catalog.c_str(),
                timeText(header.created).c_str(), static_cast<unsigned long long>(header.changes),
                timeText(header.changed).c_str());
    statistics.print(header.entries, names);
    std::printf("By list:\n");
    for (const auto& [number, source] : names.sources())
        printLine(source.entries, printable(source.name) + " (" + std::to_string(source.lines) + " lines)");
}

listreader::ExitStatus check(const Arguments& arguments) {
    const auto update = openForReading(arguments.catalog);
    const auto problems = update->check();
    for (const std::string& problem : problems)
        std::printf("%s: %s\n", arguments.catalog.c_str(), printable(problem).c_str());
    if (problems.empty()) {
        std::printf("%s: all of %llu entries are in order\n", arguments.catalog.c_str(),
                    static_cast<unsigned long long>(update->header().entries));
    }
    return problems.empty() ? listreader::fine : listreader::wrong;
}

void dump(const Arguments& arguments) {
    const auto update = openForReading(arguments.catalog);
    const Names names(update.get());
    update->forEach([&](std::string_view key, const catalog::Value& value) {
        std::string line = printable(catalog::keyText(key)) + "\t";
        std::string lists;
        for (std::size_t i = 0; i < value.pairCount; ++i) {
            const Pair pair = value.pair(i);
            line += (i == 0 ? "" : ",") + std::to_string(pair.category);
            lists += (i == 0 ? "" : ",") + printable(names.source(pair.source).name);
        }
        line += "\t" + lists + ((value.flags & catalog::isInstead) != 0 ? "\tinstead\n" : "\n");
        std::fwrite(line.data(), 1, line.size(), stdout);
    });
}

}  // namespace katcatalog
