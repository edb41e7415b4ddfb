#include "Read.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

#include "catalog/Writer.h"
#include "listreader/LineFile.h"
#include "tools/Text.h"

namespace katcatalog {

using catalog::Pair;
using catalog::Reader;
using catalog::Update;
using listreader::Failure;
using tools::printable;

namespace {

constexpr auto replaceBadUtf8 = nlohmann::json::error_handler_t::replace;

// The names of categories and sources, by number.
class Names {
public:
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
    const catalog::Sources sources_;
    const catalog::CategoryNames categories_;
};

std::unique_ptr<Update> openForReading(const std::string& path) {
    std::string failure;
    auto update = Update::open(path, &failure, Update::reading);
    if (!update) throw Failure(listreader::failed, failure);
    return update;
}

// An entry that covers a URL, copied from the file.
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
        auto* const all = static_cast<AllFound*>(context);
        if (all->count == all->entries.size()) return false;
        Found& found = all->entries[all->count++];
        found.keySize = std::min(covering.key.size(), sizeof found.key);
        std::memcpy(found.key, covering.key.data(), found.keySize);
        found.instead = (covering.value->flags & catalog::isInstead) != 0;
        found.pairCount = covering.value->pairCount;
        for (std::size_t i = 0; i < found.pairCount; ++i)
            found.pairs[i] = covering.value->pair(i);
        return true;
    }
    static void restart(void* context) { static_cast<AllFound*>(context)->count = 0; }
};

class Finder {
public:
    explicit Finder(const Arguments& arguments)
        : arguments_(arguments), names_(openForReading(arguments.catalog).get()) {
        std::string failure;
        auto file = catalog::Catalog::open(arguments.catalog, &failure);
        if (!file) throw Failure(listreader::failed, failure);
        reader_ = std::make_unique<Reader>(std::move(file));
    }

    void ask(const std::string& text) {
        catalog::Url url;
        all_.count = 0;
        const char* const reason = catalog::readUrl(text, &url);
        if (reason == nullptr && reader_->visit(url, AllFound::add, AllFound::restart, &all_) != Reader::done)
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
        nlohmann::ordered_json json;
        json["url"] = text;
        if (reason != nullptr) {
            json["reason"] = reason;
        } else {
            json["looked_up"] = lookedUp;
        }
        std::string table = printable(text) + "\n";
        table += reason == nullptr ? "  looked up as  " + printable(lookedUp) + "\n"
                                   : std::string("  not looked up: ") + reason + "\n";
        std::vector<unsigned> answer;
        bool ended = false;
        json["entries"] = nlohmann::ordered_json::array();
        for (std::size_t i = 0; i < all_.count; ++i) {
            const Found& found = all_.entries[i];
            const std::string name = catalog::keyText({found.key, found.keySize});
            nlohmann::ordered_json entry{{"entry", name}, {"instead", found.instead}, {"counts", !ended}};
            entry["categories"] = nlohmann::ordered_json::array();
            table += "  entry         " + printable(name);
            table += found.instead ? ", an exception: what is less specific does not count" : "";
            table += ended ? ", does not count: below an exception\n" : "\n";
            for (std::size_t n = 0; n < found.pairCount; ++n) {
                const Pair pair = found.pairs[n];
                const catalog::Source& source = names_.source(pair.source);
                nlohmann::ordered_json category{
                    {"category", pair.category}, {"list", source.name}, {"lines", source.lines}};
                if (const std::string itsName = names_.name(pair.category); !itsName.empty())
                    category["name"] = itsName;
                entry["categories"].push_back(category);
                table += "    category    " + names_.category(pair.category) + ", from " +
                         printable(source.name) + " (" + std::to_string(source.lines) + " lines)\n";
                if (!ended && std::find(answer.begin(), answer.end(), pair.category) == answer.end())
                    answer.push_back(pair.category);
            }
            if (found.pairCount == 0) table += "    no category\n";
            json["entries"].push_back(entry);
            ended = ended || found.instead;
        }
        json["answer"] = answer;
        table += "  answer        ";
        for (const unsigned category : answer)
            table += (category == answer.front() ? "" : ", ") + names_.category(category);
        if (answer.empty()) table += all_.count == 0 ? "none: no entry covers it" : "none";
        table += "\n";
        std::printf("%s", arguments_.json ? (json.dump(-1, ' ', false, replaceBadUtf8) + "\n").c_str()
                                          : table.c_str());
    }

    const Arguments& arguments_;
    const Names names_;
    std::unique_ptr<Reader> reader_;
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
    const auto update = openForReading(arguments.catalog);
    const Names names(update.get());
    std::map<unsigned, std::uint64_t> byCategory;
    std::map<std::string, std::uint64_t> kinds;
    std::vector<Pair> pairs;
    update->forEach([&](std::string_view key, const catalog::Value& value) {
        ++kinds[key[0] == catalog::hostRecord      ? "hosts"
                : key[0] == catalog::networkRecord ? "addresses and networks"
                                                   : "paths and ports"];
        if ((value.flags & catalog::isInstead) != 0) ++kinds["exceptions among them"];
        if (value.pairCount == 0) ++kinds["without a category among them"];
        pairs.clear();
        for (std::size_t i = 0; i < value.pairCount; ++i)
            pairs.push_back(value.pair(i));
        for (const std::uint16_t category : catalog::categoriesOf(pairs))
            ++byCategory[category];
    });
    const catalog::Header header = update->header();
    if (arguments.json) {
        nlohmann::ordered_json json{{"catalog", arguments.catalog}, {"entries", header.entries},
                                    {"created", header.created},    {"changed", header.changed},
                                    {"changes", header.changes},    {"kinds", kinds}};
        for (const auto& [category, count] : byCategory)
            json["categories"][std::to_string(category)] = count;
        for (const auto& [number, source] : names.sources())
            json["lists"].push_back(
                {{"name", source.name}, {"lines", source.lines}, {"entries", source.entries}});
        std::printf("%s\n", json.dump(2, ' ', false, replaceBadUtf8).c_str());
        return;
    }
    const auto line = [](std::uint64_t number, const std::string& text) {
        std::printf("%12llu %s\n", static_cast<unsigned long long>(number), text.c_str());
    };
    std::printf("%s: made %s, changed %llu times, last %s\n", arguments.catalog.c_str(),
                timeText(header.created).c_str(), static_cast<unsigned long long>(header.changes),
                timeText(header.changed).c_str());
    line(header.entries, "entries");
    for (const auto& [kind, count] : kinds)
        line(count, kind);
    std::printf("By category:\n");
    for (const auto& [category, count] : byCategory)
        line(count, names.category(category));
    std::printf("By list:\n");
    for (const auto& [number, source] : names.sources())
        line(source.entries, printable(source.name) + " (" + std::to_string(source.lines) + " lines)");
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
