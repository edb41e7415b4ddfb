#include "Push.h"

#include <algorithm>
#include <cstring>
#include <memory_resource>

#include "Inputs.h"
#include "Store.h"
#include "Summary.h"
#include "catalog/Shared.h"
#include "listreader/Failure.h"

namespace katcatalog {

using catalog::Builder;
using catalog::SharedEntry;
using listreader::Failure;

namespace {

constexpr std::size_t batchBytes = 128U << 10U;  // of one MSET

// The groups that the store is to hold.
class Groups {
public:
    enum State : unsigned char { missing, differs, same };
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    // REQUIRES: the builder is sorted.
    explicit Groups(Builder* builder) {
        addAll(builder);
        makeIndex();
    }

    std::size_t size() const { return groups_.size(); }
    std::string_view key(std::size_t i) const { return {groups_[i] + sizeof(Sizes), sizes(i).key}; }
    std::string_view value(std::size_t i) const {
        return {groups_[i] + sizeof(Sizes) + sizes(i).key, sizes(i).value};
    }
    std::size_t find(std::string_view key) const {
        for (std::size_t slot = slotOf(key); slots_[slot] != 0; slot = (slot + 1) % slots_.size()) {
            const std::size_t i = slots_[slot] - 1;
            if (this->key(i) == key) return i;
        }
        return none;
    }

    std::vector<State> states;  // of each group in the store
    Builder::Result result;

private:
    // Before the bytes of a group's key and value.
    struct Sizes {
        std::uint32_t key;
        std::uint32_t value;
    };
    // What a path adds to a group: an entry, or the mark that there are groups below it.
    struct Part {
        std::string_view group;
        std::size_t entry;  // its number, or none for the mark
    };

    Sizes sizes(std::size_t i) const {
        Sizes sizes;
        std::memcpy(&sizes, groups_[i], sizeof sizes);
        return sizes;
    }
    std::size_t slotOf(std::string_view key) const {
        return std::hash<std::string_view>()(key) % slots_.size();
    }

    static SharedEntry entryOf(const Builder::Item& item) {
        SharedEntry entry;
        entry.instead = (item.flags & catalog::isInstead) != 0;
        entry.categories = catalog::categoriesOf(item.pairs);
        return entry;
    }

    void addAll(Builder* builder) {
        std::pmr::monotonic_buffer_resource names;
        std::vector<Part> parts;
        std::vector<SharedEntry> entries;
        std::vector<std::string> marked;
        const auto addPart = [&](const std::string& group, std::size_t entry) {
            char* const bytes = static_cast<char*>(names.allocate(group.size(), 1));
            parts.push_back({{bytes, group.copy(bytes, group.size())}, entry});
        };
        Builder::Item item;
        while (builder->next(&item, &result)) {
            if ((item.flags & catalog::isEntry) == 0) continue;
            ++result.entries;
            if (item.key[0] != catalog::pathRecord) continue;
            catalog::SharedPlace place = catalog::sharedPlace(item.key);
            addPart(place.group, entries.size());
            entries.push_back(entryOf(item));
            entries.back().port = place.port;
            entries.back().rest = std::move(place.rest);
            if (place.above == marked) continue;
            for (const std::string& group : place.above)
                addPart(group, none);
            marked = std::move(place.above);
        }
        std::sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) { return a.group < b.group; });

        // Hosts and networks come first in both orders.
        auto part = parts.begin();
        const auto add = [&](std::string_view group, std::vector<SharedEntry> own) {
            bool hasBelow = false;
            for (; part != parts.end() && part->group == group; ++part) {
                hasBelow = hasBelow || part->entry == none;
                if (part->entry != none) own.push_back(std::move(entries[part->entry]));
            }
            append(group, catalog::encodeGroup(std::move(own), hasBelow));
        };
        std::string group;
        Builder::Result ignored;
        builder->rewind();
        while (builder->next(&item, &ignored) && item.key[0] != catalog::pathRecord) {
            group.assign(catalog::sharedPrefix).append(item.key);
            const bool isEntry = (item.flags & catalog::isEntry) != 0;
            add(group, isEntry ? std::vector<SharedEntry>{entryOf(item)} : std::vector<SharedEntry>());
        }
        while (part != parts.end())
            add(part->group, {});
    }

    void append(std::string_view key, std::string_view value) {
        const Sizes sizes{static_cast<std::uint32_t>(key.size()), static_cast<std::uint32_t>(value.size())};
        char* const bytes = static_cast<char*>(memory_.allocate(sizeof sizes + key.size() + value.size(), 1));
        std::memcpy(bytes, &sizes, sizeof sizes);
        key.copy(bytes + sizeof sizes, key.size());
        value.copy(bytes + sizeof sizes + key.size(), value.size());
        groups_.push_back(bytes);
    }

    void makeIndex() {
        slots_.resize(groups_.size() * 3 / 2 + 1);
        states.resize(groups_.size(), missing);
        for (std::size_t i = 0; i < groups_.size(); ++i) {
            std::size_t slot = slotOf(key(i));
            while (slots_[slot] != 0)
                slot = (slot + 1) % slots_.size();
            slots_[slot] = static_cast<std::uint32_t>(i + 1);
        }
    }

    std::pmr::monotonic_buffer_resource memory_;
    std::vector<const char*> groups_;
    std::vector<std::uint32_t> slots_;  // a hash table: numbers of groups, counted from 1; 0: free
};

class Push {
public:
    Push(Store* store, Groups* groups, listreader::Progress* progress)
        : store_(*store), groups_(*groups), progress_(*progress) {}

    void run() {
        progress_.begin("waiting for another push");
        store_.lock();
        const std::string version = store_.version();
        const bool wasCut = store_.ask({"EXISTS", catalog::sharedUnfinishedKey})->integer != 0;
        compare();
        write();
        if (!hasChanged_ && !wasCut && !version.empty()) {
            store_.unlock({});
            return;
        }
        hasChanged_ = true;
        store_.unlock({{"SET", catalog::sharedMetaKey, catalog::sharedMeta(randomWord())},
                       {"DEL", catalog::sharedUnfinishedKey}});
    }

    std::uint64_t added() const { return added_; }
    std::uint64_t changed() const { return changed_; }
    std::uint64_t removed() const { return removed_; }
    bool hasChanged() const { return hasChanged_; }

private:
    // Reads all that the store holds, and removes what it should not.
    void compare() {
        std::uint64_t read = 0;
        std::vector<std::size_t> wanted;
        store_.forEachKeys([&](const std::vector<std::string_view>& keys) {
            Words get{"MGET", catalog::sharedMetaKey};
            Words remove{"UNLINK"};
            wanted.clear();
            for (const std::string_view key : keys) {
                progress_.step("comparing", ++read);
                const std::size_t group = groups_.find(key);
                if (group == Groups::none) {
                    remove.push_back(key);
                } else {
                    get.push_back(key);
                    wanted.push_back(group);
                }
            }
            if (remove.size() > 1)
                removed_ += static_cast<std::uint64_t>(change(remove)->element[1]->integer);
            const Reply values = store_.change({get});
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                const redisReply& value = *values->element[0]->element[i + 1];
                const bool isSame =
                    value.type == REDIS_REPLY_STRING && textOf(value) == groups_.value(wanted[i]);
                groups_.states[wanted[i]] = isSame ? Groups::same : Groups::differs;
            }
        });
    }

    void write() {
        Words batch{"MSET"};
        std::size_t bytes = 0;
        for (std::size_t i = 0; i < groups_.size(); ++i) {
            progress_.step("writing", i + 1);
            if (groups_.states[i] == Groups::same) continue;
            ++(groups_.states[i] == Groups::differs ? changed_ : added_);
            batch.push_back(groups_.key(i));
            batch.push_back(groups_.value(i));
            bytes += groups_.key(i).size() + groups_.value(i).size();
            if (bytes < batchBytes) continue;
            change(batch);
            batch.resize(1);
            bytes = 0;
        }
        if (batch.size() > 1) change(batch);
    }

    // A cut push leaves the mark, by which the next one knows that engines need a new version.
    Reply change(const Words& command) {
        hasChanged_ = true;
        return store_.change({{"SET", catalog::sharedUnfinishedKey, "1"}, command});
    }

    Store& store_;
    Groups& groups_;
    listreader::Progress& progress_;
    bool hasChanged_ = false;
    std::uint64_t added_ = 0;
    std::uint64_t changed_ = 0;
    std::uint64_t removed_ = 0;
};

}  // namespace

void push(const Arguments& arguments) {
    // Fail early if the store is out of reach or of another format.
    Store store(arguments);
    store.version();
    listreader::Progress progress(arguments.quiet);
    Inputs inputs(arguments);
    auto builder = std::make_unique<Builder>();
    inputs.read(arguments.inputs, {}, arguments.category, builder.get(), &progress);
    progress.begin("sorting");
    builder->sort();
    Groups groups(builder.get());
    builder.reset();
    if (groups.result.entries < arguments.minItems) {
        throw Failure(listreader::wrong, std::to_string(groups.result.entries) + " entries, fewer than " +
                                             std::to_string(arguments.minItems) + ": " + store.name() +
                                             " is unchanged (--min-items)");
    }
    Push push(&store, &groups, &progress);
    push.run();
    listreader::Progress::clear();
    Summary summary(arguments, store.name(), push.hasChanged() ? "in step with the lists" : "nothing to do");
    summary.reading(inputs.counts());
    summary.line("repeated", groups.result.repeated, "that said nothing new");
    summary.line("categories_dropped", groups.result.dropped,
                 "categories beyond the 256 of an entry dropped");
    summary.line("entries", groups.result.entries, "entries in the store", true);
    summary.line("keys_added", push.added(), "keys added", true);
    summary.line("keys_changed", push.changed(), "keys changed", true);
    summary.line("keys_removed", push.removed(), "keys removed", true);
    if (Store::wasSignalled()) listreader::tell("too late to stop: the push is complete");
}

}  // namespace katcatalog
