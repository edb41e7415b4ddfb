#include "Write.h"

#include <algorithm>

#include "Inputs.h"
#include "Summary.h"
#include "listreader/OutputFile.h"

namespace katcatalog {

using catalog::Builder;
using catalog::Entry;
using catalog::Pair;
using catalog::Update;
using listreader::Failure;

namespace {

std::unique_ptr<Update> open(const std::string& path) {
    std::string failure;
    auto update = Update::open(path, &failure);
    if (!update) throw Failure(listreader::failed, failure);
    return update;
}

template <typename Change>
void change(Change body) {
    try {
        body();
    } catch (const Update::Failure& failure) {
        throw Failure(listreader::failed, failure.text + "; the catalogue is as it was");
    }
}

std::string hostOf(std::string_view key) {
    return key[0] == catalog::pathRecord ? catalog::hostKeyOf(key) : std::string();
}

void putNames(Update* update, const Inputs& inputs, bool alone) {
    const auto known = update->categoryNames();
    for (const auto& [number, name] : known) {
        if (alone && inputs.names().count(number) == 0) update->eraseCategoryName(number);
    }
    for (const auto& [number, name] : inputs.names()) {
        const auto place = known.find(number);
        if (place == known.end() || place->second != name) update->setCategoryName(number, name);
    }
}

// Updates the sources' counts of entries.
void putSources(Update* update, const catalog::Sources& before, const catalog::Sources& sources) {
    for (const auto& [number, source] : before) {
        if (sources.count(number) == 0) update->eraseSource(number);
    }
    for (const auto& [number, source] : sources) {
        const auto place = before.find(number);
        if (place == before.end() || catalog::sourceValue(place->second) != catalog::sourceValue(source))
            update->setSource(number, source);
    }
}

void count(catalog::Sources* sources, const std::vector<Pair>& pairs, bool add) {
    for (const Pair& pair : pairs) {
        const auto place = sources->find(pair.source);
        if (place != sources->end()) place->second.entries += add ? 1U : ~std::uint64_t{0};
    }
}

void refuseTooFew(const Arguments& arguments, std::uint64_t before, std::uint64_t after) {
    const std::string count = std::to_string(after) + " entries";
    if (after < arguments.minItems)
        throw Failure(listreader::wrong, count + ", fewer than " + std::to_string(arguments.minItems) + ": " +
                                             arguments.catalog + " is unchanged (--min-items)");
    if (after * 100 < before * (100 - arguments.maxShrink))
        throw Failure(listreader::wrong, count + " instead of " + std::to_string(before) + ": " +
                                             arguments.catalog + " is unchanged (--max-shrink)");
}

}  // namespace

void import(const Arguments& arguments) {
    listreader::Progress progress(arguments.quiet);
    // Fail early if the catalogue cannot be written.
    listreader::OutputFile file(arguments.catalog);
    Builder builder;
    Inputs inputs(arguments);
    std::vector<KnownList> memory;
    inputs.read(inputs.find(arguments.inputs, {}, arguments.category), &builder, &progress, &memory);
    progress.begin("sorting and writing");
    Builder::Result result;
    std::string failure;
    // sync cannot tell what was left out.
    const std::string remembered = arguments.compact ? "" : memoryValue(memory, inputs.rules());
    if (!builder.write(file.temporaryPath(), arguments.compact, inputs.sources(), inputs.names(), &result,
                       &failure, remembered))
        throw Failure(listreader::failed, "cannot write " + arguments.catalog + ": " + failure +
                                              "; what was there before is as it was");
    file.commit();
    listreader::Progress::clear();
    Summary summary(arguments, arguments.catalog, std::to_string(result.entries) + " entries");
    summary.reading(inputs.counts());
    summary.line("repeated", result.repeated, "that said nothing new");
    summary.line("categories_dropped", result.dropped, "categories beyond the 256 of an entry dropped");
    summary.line("redundant", result.compacted, "redundant entries left out");
    summary.line("entries", result.entries, "entries in the catalogue", true);
}

void update(const Arguments& arguments) {
    const auto update = open(arguments.catalog);
    listreader::Progress progress(arguments.quiet);
    const catalog::Sources before = update->sources();
    Inputs inputs(arguments);
    Builder added;
    inputs.read(arguments.inputs, before, arguments.category, &added, &progress);
    Inputs goneInputs(arguments);
    Builder gone;
    // Without a category the whole entry is removed.
    goneInputs.read(arguments.removed, before, arguments.category < 0 ? noCategory : arguments.category,
                    &gone, &progress);
    std::uint64_t addedEntries = 0;
    std::uint64_t changedEntries = 0;
    std::uint64_t removedEntries = 0;
    std::uint64_t missing = 0;
    change([&] {
        progress.begin("writing");
        catalog::Sources sources = before;
        for (const auto& [number, source] : inputs.sources()) {
            const auto place = before.find(number);
            sources[number].name = source.name;
            sources[number].lines = std::max(source.lines, place == before.end() ? 0 : place->second.lines);
        }
        update->expectChanges(inputs.counts().read.entries + goneInputs.counts().read.entries);
        Builder::Item item;
        Builder::Result result;
        gone.sort();
        while (gone.next(&item, &result)) {
            if ((item.flags & catalog::isEntry) == 0) continue;
            const std::string key(item.key);
            Entry entry;
            if (!update->get(key, &entry)) {
                ++missing;
                continue;
            }
            count(&sources, entry.pairs, false);
            const auto isGone = [&](const Pair& pair) {
                return std::any_of(item.pairs.begin(), item.pairs.end(),
                                   [&](const Pair& named) { return named.category == pair.category; });
            };
            if (item.pairs.empty()) {
                entry.pairs.clear();
            } else {
                entry.pairs.erase(std::remove_if(entry.pairs.begin(), entry.pairs.end(), isGone),
                                  entry.pairs.end());
            }
            count(&sources, entry.pairs, true);
            ++removedEntries;
            if (entry.pairs.empty()) {
                update->erase(key, hostOf(key));
            } else {
                update->put(key, hostOf(key), entry);
            }
        }
        added.sort();
        while (added.next(&item, &result)) {
            if ((item.flags & catalog::isEntry) == 0) continue;
            const std::string key(item.key);
            Entry entry;
            const bool known = update->get(key, &entry);
            const Entry old = entry;
            for (const Pair& pair : item.pairs) {
                const bool has = std::any_of(entry.pairs.begin(), entry.pairs.end(), [&](const Pair& other) {
                    return other.category == pair.category;
                });
                if (!has && entry.pairs.size() < catalog::maxEntryCategories) entry.pairs.push_back(pair);
            }
            entry.instead = entry.instead || (item.flags & catalog::isInstead) != 0;
            if (known && entry == old) continue;
            ++(known ? changedEntries : addedEntries);
            count(&sources, old.pairs, false);
            count(&sources, entry.pairs, true);
            update->put(key, hostOf(key), entry);
        }
        putSources(update.get(), before, sources);
        putNames(update.get(), inputs, false);
        update->commit();
    });
    listreader::Progress::clear();
    Summary summary(arguments, arguments.catalog, "updated");
    summary.reading(inputs.counts());
    summary.line("remove_lines", goneInputs.counts().read.lines, "lines of what is to go read");
    summary.line("remove_bad_lines", goneInputs.counts().read.bad, "of these bad lines skipped");
    summary.line("added", addedEntries, "entries added", true);
    summary.line("changed", changedEntries, "entries changed");
    summary.line("removed", removedEntries, "entries removed, or a category of theirs");
    summary.line("missing", missing, "entries to be removed were not there");
}

namespace {

// A source as sync sees it.
struct Place {
    std::uint32_t position = 0;  // among the inputs
    bool stays = false;          // its pairs in the catalogue are those of its list
};

struct SyncCounts {
    std::uint64_t unchanged = 0;  // lists
    std::uint64_t added = 0;
    std::uint64_t changed = 0;
    std::uint64_t removed = 0;
};

struct Change {
    std::string key;
    bool erase;
    Entry entry;
    Update::Known known;
};

// What makes the catalogue's entries equal to those of the lists: the pairs of sources that stay, and
// `wanted`. *isComplete is false if an entry has more pairs than the catalogue holds.
std::vector<Change> compare(const Update& update, Builder* wanted, const std::vector<Place>& places,
                            catalog::Sources* sources, SyncCounts* counts, bool* isComplete) {
    std::vector<Change> changes;
    std::vector<std::uint64_t> entries(places.size());
    Builder::Item item;
    Builder::Result result;
    const auto next = [&] {
        while (wanted->next(&item, &result)) {
            if ((item.flags & catalog::isEntry) == 0) continue;
            for (const Pair& pair : item.pairs)
                ++entries[pair.source];
            return true;
        }
        return false;
    };
    bool more = false;
    const auto isBefore = [&](const Pair& a, const Pair& b) {
        return places[a.source].position < places[b.source].position;
    };
    const auto add = [&](const Update::Known& known) {
        changes.push_back(
            {std::string(item.key), false, Entry{(item.flags & catalog::isInstead) != 0, item.pairs}, known});
        ++counts->added;
        more = next();
    };
    Entry before;
    Entry after;
    more = next();
    for (Update::Records records(update); records.next();) {
        const std::string_view key = records.key();
        const catalog::Value& value = records.value();
        int order = 1;
        while (more && (order = item.key.compare(key)) < 0)
            add({});
        const bool named = more && order == 0;
        if ((value.flags & catalog::isEntry) == 0) {
            if (named) add(records.known());
            continue;
        }
        // Nearly all entries, if few lists have changed.
        if (!named && value.pairCount > 0 && (value.flags & catalog::isInstead) == 0) {
            bool isSame = true;
            for (std::size_t i = 0; isSame && i < value.pairCount; ++i)
                isSame = places[value.pair(i).source].stays &&
                         (i == 0 || !isBefore(value.pair(i), value.pair(i - 1)));
            if (isSame) continue;
        }
        before.instead = (value.flags & catalog::isInstead) != 0;
        before.pairs.clear();
        after.instead = named && (item.flags & catalog::isInstead) != 0;
        after.pairs.clear();
        for (std::size_t i = 0; i < value.pairCount; ++i) {
            before.pairs.push_back(value.pair(i));
            if (places[before.pairs.back().source].stays) after.pairs.push_back(before.pairs.back());
        }
        const bool anyStays = !after.pairs.empty();
        if (named) after.pairs.insert(after.pairs.end(), item.pairs.begin(), item.pairs.end());
        if (anyStays && !std::is_sorted(after.pairs.begin(), after.pairs.end(), isBefore))
            std::stable_sort(after.pairs.begin(), after.pairs.end(), isBefore);
        if (after.pairs.size() > catalog::maxEntryCategories) {
            for (const Pair& pair : after.pairs)
                --entries[pair.source];
            result.dropped += catalog::limitPairs(&after.pairs);
            for (const Pair& pair : after.pairs)
                ++entries[pair.source];
        }
        if (!named && after.pairs.empty()) {
            changes.push_back({std::string(key), true, {}, records.known()});
            ++counts->removed;
        } else if (!(before == after)) {
            changes.push_back({std::string(key), false, after, records.known()});
            ++counts->changed;
        }
        if (named) more = next();
    }
    while (more)
        add({});
    for (auto& [number, source] : *sources)
        source.entries += entries[number];
    *isComplete = result.dropped == 0;
    return changes;
}

}  // namespace

void sync(const Arguments& arguments) {
    const auto update = open(arguments.catalog);
    listreader::Progress progress(arguments.quiet);
    const catalog::Sources before = update->sources();
    Inputs inputs(arguments);
    const Inputs::Files files = inputs.find(arguments.inputs, before, arguments.category);
    const std::string rules = inputs.rules();
    const std::string stored = update->memory();
    const std::vector<KnownList> known = parseMemory(stored, rules);
    std::map<std::uint16_t, KnownList> knownBySource;
    for (const KnownList& list : known)
        knownBySource[list.source] = list;

    std::vector<Place> places(65536);
    const bool readAll = arguments.all || Inputs::hasRepeats(files);
    bool isSame = known.size() == files.size();
    for (std::uint32_t i = 0; i < files.size(); ++i) {
        const auto& [file, source] = files[i];
        KnownList& list = knownBySource[source];
        const bool stays = !readAll && list.isWhole != 0 && list.category == file.category &&
                           !(arguments.strict && list.bad > 0) && isUnchanged(file.path, &list);
        places[source] = {i, stays};
        isSame = isSame && stays && known[i].source == source;
    }
    Inputs::Files changedFiles;
    catalog::Sources sources;
    SyncCounts counts;
    for (const Inputs::File& file : files) {
        Place& place = places[file.source];
        // Which lists have entries without a category is only known if all of these lists are read.
        place.stays = place.stays && (isSame || knownBySource[file.source].hasUnclaimed == 0);
        if (place.stays) {
            sources[file.source] = before.at(file.source);
            ++counts.unchanged;
        } else {
            changedFiles.push_back(file);
        }
    }
    Builder wanted;
    std::vector<KnownList> nowKnown;
    inputs.read(changedFiles, &wanted, &progress, &nowKnown);
    std::vector<KnownList> memory;
    auto next = nowKnown.begin();
    for (const Inputs::File& file : files)
        memory.push_back(places[file.source].stays ? knownBySource[file.source] : *next++);
    for (const auto& [number, source] : inputs.sources())
        sources[number] = source;
    change([&] {
        std::string remembered = stored;
        std::vector<Change> changes;
        if (!isSame) {
            progress.begin("sorting");
            wanted.sort();
            progress.begin("comparing");
            bool isComplete = true;
            changes = compare(*update, &wanted, places, &sources, &counts, &isComplete);
            remembered = isComplete ? memoryValue(memory, rules) : "";
        }
        refuseTooFew(arguments, update->header().entries,
                     update->header().entries + counts.added - counts.removed);
        if (arguments.dryRun) return;
        progress.begin("writing");
        // In the order of the keys: what was known of a host is void once one of its paths has been written.
        update->expectChanges(changes.size());
        for (const Change& one : changes) {
            if (one.erase) {
                update->erase(one.key, hostOf(one.key), &one.known);
            } else {
                update->put(one.key, hostOf(one.key), one.entry, &one.known);
            }
        }
        if (!isSame) putSources(update.get(), before, sources);
        putNames(update.get(), inputs, true);
        // Do not commit a transaction without changes.
        if (update->written() == 0 && remembered == stored) return;
        update->setMemory(remembered);
        update->commit();
    });
    listreader::Progress::clear();
    Summary summary(arguments, arguments.catalog, "in step with the lists");
    summary.line("unchanged", counts.unchanged, "lists not read, because they have not changed");
    summary.reading(inputs.counts());
    summary.line("added", counts.added, "entries added", true);
    summary.line("changed", counts.changed, "entries changed", true);
    summary.line("removed", counts.removed, "entries removed", true);
}

}  // namespace katcatalog
