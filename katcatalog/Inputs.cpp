#include "Inputs.h"

#include <algorithm>
#include <atomic>
#include <bitset>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <future>
#include <set>
#include <system_error>
#include <thread>

#include "listreader/Failure.h"

#ifdef KATD_HAVE_IDN2
#include <idn2.h>
#endif
#ifdef KATD_HAVE_PSL
#include <libpsl.h>
#endif

namespace katcatalog {

using catalog::Builder;
using catalog::Url;
using listreader::Failure;

namespace {

constexpr std::size_t mostReaders = 4;  // with two, reading takes half the time of the writing that follows
constexpr unsigned replyLimit = 255;    // a reply of katd has one byte for each category

#ifdef KATD_HAVE_PSL
constexpr const char* suffixFile = "/usr/share/publicsuffix/public_suffix_list.dat";

// The list of public suffixes that the system has, else the one within libpsl. libpsl answers; the names in
// the file tell which hosts it must be asked about.
class Suffixes {
public:
    Suffixes() : list_(psl_load_file(suffixFile)) {
        std::ifstream file(suffixFile);
        filtered_ = psl_suffix_count(list_) > 0;
        if (!filtered_) list_ = psl_builtin();
        Url url;
        for (std::string line; std::getline(file, line);) {
            line.resize(std::min(line.find_first_of(" \t\r"), line.size()));
            const bool isWildcard = line.compare(0, 2, "*.") == 0;
            line.erase(0, isWildcard ? 2 : line.compare(0, 1, "!") == 0 ? 1 : 0);
            if (catalog::readEntry(line, &url) != nullptr) continue;
            rules_.set(place(url.host));
            if (isWildcard) wildcards_.set(place(url.host));
        }
    }

    // `host` as in Url::host: what stands before its last zero byte is the name above it.
    bool has(std::string_view host) const {
        const std::size_t above = host.rfind('\0');
        if (filtered_ && !rules_[place(host)] &&
            (above == host.npos || !wildcards_[place(host.substr(0, above))]))
            return false;
        return psl_is_public_suffix2(list_, catalog::hostText(Url::name, host).c_str(),
                                     PSL_TYPE_ICANN | PSL_TYPE_NO_STAR_RULE) != 0;
    }

private:
    static constexpr std::size_t places = 1U << 19U;
    static std::size_t place(std::string_view host) { return std::hash<std::string_view>()(host) % places; }

    const psl_ctx_t* list_;
    bool filtered_;
    std::bitset<places> rules_;
    std::bitset<places> wildcards_;
};
#endif

// "com", "co.uk": names below which anyone may register. Private ones, such as those of hosting companies,
// are often meant as a whole.
bool isPublicSuffix(const Url& url) {
    if (url.kind != Url::name || !url.path.empty()) return false;
#ifdef KATD_HAVE_PSL
    static const Suffixes suffixes;
    return suffixes.has(url.host);
#else
    return url.host.find('\0') == url.host.npos;
#endif
}

// One list: reading it, and what came of that.
class ListReading {
public:
    // Adds the list's entries to `builder`; all that is wrong is in the results. Gives up when isInVain()
    // returns true.
    void read(const Arguments& arguments, const Inputs::File& file, bool remember, Builder* builder,
              listreader::Progress* progress, const std::function<bool()>& isInVain) {
        listreader::Reader reader(
            {highestCategory, arguments.strict, arguments.show, &badLines},
            [&](listreader::Entry& entry) {
                if (isInVain()) throw Failure(listreader::failed, "another list cannot be read");
                return take(entry, arguments.allowSuffixes, file.source, builder);
            },
            progress);
        try {
            const bool isKnown = remember && examine(file.file.path, &known);
            reader.read(file.file);
            known.isWhole = isKnown && isAsBefore(file.file.path, known) ? 1 : 0;
        } catch (...) {
            failure = std::current_exception();
        }
        counts.read = reader.counts();
        known.bad = counts.read.bad;
        known.category = file.file.category;
        known.source = file.source;
    }

    std::vector<std::string> badLines;  // those to be shown
    Counts counts;
    KnownList known{};
    std::exception_ptr failure;

private:
    const char* take(const listreader::Entry& entry, bool allowSuffixes, std::uint16_t source,
                     Builder* builder) {
        const char* const reason = entry.kind == listreader::EntryKind::url
                                       ? catalog::readUrl(entry.text, &url_)
                                       : catalog::readEntry(entry.text, &url_);
        if (reason != nullptr) return reason;
        if (!allowSuffixes && !entry.isException && isPublicSuffix(url_)) {
            ++counts.suffixes;
            return "a public suffix: everybody's hosts lie below it (--allow-suffixes takes it)";
        }
        if (entry.isException) ++counts.exceptions;
        if (entry.scope == listreader::Scope::below) ++counts.belowOnly;
        const bool hasCategory = !entry.isException && entry.category != noCategory;
        const unsigned category = hasCategory ? static_cast<unsigned>(entry.category) : Builder::noCategory;
        if (!hasCategory) known.hasUnclaimed = 1;
        if (hasCategory && category > replyLimit) ++counts.beyondReply;
        return builder->add(url_, category, source, entry.isException);
    }

    Url url_;
};

void addCounts(const Counts& more, Counts* counts) {
    counts->read.lines += more.read.lines;
    counts->read.empty += more.read.empty;
    counts->read.ownNames += more.read.ownNames;
    counts->read.bad += more.read.bad;
    counts->read.entries += more.read.entries;
    counts->exceptions += more.exceptions;
    counts->belowOnly += more.belowOnly;
    counts->suffixes += more.suffixes;
    counts->beyondReply += more.beyondReply;
}

}  // namespace

Inputs::Inputs(const Arguments& arguments) : arguments_(arguments) {
    if (arguments.map.empty()) return;
    std::string problem;
    const auto status = map_.read(arguments.map, &problem);
    if (status != tools::CategoryNames::Status::ok) {
        throw Failure(
            status == tools::CategoryNames::Status::malformed ? listreader::wrong : listreader::failed,
            problem);
    }
    for (const auto& [name, number] : map_.entries())
        names_.emplace(static_cast<std::uint16_t>(number), name);
}

Inputs::Files Inputs::find(const std::vector<std::string>& inputs, const catalog::Sources& known,
                           std::int32_t otherwise) {
    listreader::CategoryRules rules;
    if (!map_.empty()) {
        rules.numberOf = [this](std::string_view name) {
            const auto number = map_.numberOf(name);
            return number ? static_cast<std::int32_t>(*number) : -1;
        };
    }
    rules.highest = highestCategory;
    rules.otherwise = otherwise;
    listreader::Notes skipped(stderr, arguments_.show);
    auto found = findSources(inputs, listreader::Wanted::both, rules, &skipped);
    skipped.end("folders");
    counts_.foldersSkipped += skipped.count();
    if (arguments_.strict && skipped.count() > 0)
        throw Failure(listreader::wrong,
                      "a folder has no number: add it to " + arguments_.map + " (--strict)");

    std::map<std::string, std::uint16_t> numbers;
    for (const auto& [number, source] : known)
        numbers[source.name] = number;
    std::uint32_t next = 1;
    Files files;
    for (listreader::Source& file : found) {
        auto place = numbers.find(file.path);
        if (place == numbers.end()) {
            while (known.count(static_cast<std::uint16_t>(next)) != 0 && next <= 65535)
                ++next;
            if (next > 65535) throw Failure(listreader::failed, "there are more than 65535 lists: join some");
            place = numbers.emplace(file.path, static_cast<std::uint16_t>(next++)).first;
        }
        files.push_back({std::move(file), place->second});
    }
    return files;
}

bool Inputs::hasRepeats(const Files& files) {
    std::set<std::uint16_t> sources;
    return !std::all_of(files.begin(), files.end(),
                        [&](const File& file) { return sources.insert(file.source).second; });
}

std::string Inputs::rules() const {
    std::string text = std::string(KATCATALOG_VERSION) + (arguments_.allowSuffixes ? " all" : "");
#ifdef KATD_HAVE_IDN2
    text += std::string(" idn ") + idn2_check_version(nullptr);
#endif
#ifdef KATD_HAVE_PSL
    text += std::string(" psl ") + psl_get_version();
    KnownList list{};
    if (examine(suffixFile, &list))
        text += " " + std::to_string(list.checksum[0]) + " " + std::to_string(list.checksum[1]);
#endif
    return text;
}

void Inputs::read(const Files& files, Builder* builder, listreader::Progress* progress,
                  std::vector<KnownList>* memory) {
    const bool repeats = hasRepeats(files);
    std::vector<ListReading> lists(files.size());
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> failed{files.size()};  // the first list that could not be read
    const auto readLists = [&](Builder* own) {
        for (std::size_t i = next++; i < failed; i = next++) {
            own->beginList(static_cast<std::uint32_t>(i));
            lists[i].read(arguments_, files[i], memory != nullptr && !repeats, own, progress,
                          [&] { return failed < i; });
            if (!lists[i].failure) continue;
            std::size_t first = failed;
            while (i < first && !failed.compare_exchange_weak(first, i)) {
            }
        }
    };
    // A list that is named twice, standard input for instance, is not read by two threads at once.
    const std::size_t readers =
        repeats ? 1 : std::min<std::size_t>({files.size(), std::thread::hardware_concurrency(), mostReaders});
    std::deque<Builder> builders;
    std::vector<std::future<void>> threads;
    try {
        while (threads.size() + 1 < readers)
            threads.push_back(std::async(std::launch::async, readLists, &builders.emplace_back()));
    } catch (const std::system_error&) {
        // Those that run read all lists.
    }
    readLists(builder);
    for (std::future<void>& thread : threads)
        thread.get();

    listreader::Notes bad(stderr, arguments_.show);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const ListReading& list = lists[i];
        for (const std::string& line : list.badLines)
            bad.add(line);
        if (list.failure) std::rethrow_exception(list.failure);
        for (std::uint64_t shown = list.badLines.size(); shown < list.counts.read.bad; ++shown)
            bad.add();
        addCounts(list.counts, &counts_);
        catalog::Source& source = sources_[files[i].source];
        source.name = files[i].file.path;
        source.lines += list.counts.read.lines;
        if (memory != nullptr) memory->push_back(list.known);
    }
    bad.end("bad lines");
    for (Builder& other : builders)
        builder->take(&other);
}

}  // namespace katcatalog
