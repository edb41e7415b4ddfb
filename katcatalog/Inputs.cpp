#include "Inputs.h"

#include <algorithm>
#include <bitset>
#include <fstream>
#include <functional>
#include <set>

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

constexpr unsigned replyLimit = 255;  // a reply of katd has one byte for each category

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
    listreader::Reader reader(
        {highestCategory, arguments_.strict, arguments_.show},
        [&](listreader::Entry& entry) { return take(entry, builder); }, progress);
    const bool repeats = memory != nullptr && hasRepeats(files);
    for (const File& file : files) {
        source_ = file.source;
        hasUnclaimed_ = false;
        KnownList list{};
        const bool isKnown = memory != nullptr && !repeats && examine(file.file.path, &list);
        const listreader::Reader::Counts before = reader.counts();
        reader.read(file.file);
        const listreader::Reader::Counts after = reader.counts();
        catalog::Source& source = sources_[source_];
        source.name = file.file.path;
        source.lines += after.lines - before.lines;
        if (memory == nullptr) continue;
        list.isWhole = isKnown && isAsBefore(file.file.path, list) ? 1 : 0;
        list.hasUnclaimed = hasUnclaimed_ ? 1 : 0;
        list.bad = after.bad - before.bad;
        list.category = file.file.category;
        list.source = source_;
        memory->push_back(list);
    }
    reader.end();
    const listreader::Reader::Counts counts = reader.counts();
    counts_.read.lines += counts.lines;
    counts_.read.empty += counts.empty;
    counts_.read.ownNames += counts.ownNames;
    counts_.read.bad += counts.bad;
    counts_.read.entries += counts.entries;
}

const char* Inputs::take(const listreader::Entry& entry, Builder* builder) {
    const char* const reason = entry.kind == listreader::EntryKind::url
                                   ? catalog::readUrl(entry.text, &url_)
                                   : catalog::readEntry(entry.text, &url_);
    if (reason != nullptr) return reason;
    if (!arguments_.allowSuffixes && !entry.isException && isPublicSuffix(url_)) {
        ++counts_.suffixes;
        return "a public suffix: everybody's hosts lie below it (--allow-suffixes takes it)";
    }
    if (entry.isException) ++counts_.exceptions;
    if (entry.scope == listreader::Scope::below) ++counts_.belowOnly;
    const bool hasCategory = !entry.isException && entry.category != noCategory;
    const unsigned category = hasCategory ? static_cast<unsigned>(entry.category) : Builder::noCategory;
    hasUnclaimed_ = hasUnclaimed_ || !hasCategory;
    if (hasCategory && category > replyLimit) ++counts_.beyondReply;
    return builder->add(url_, category, source_, entry.isException);
}

}  // namespace katcatalog
