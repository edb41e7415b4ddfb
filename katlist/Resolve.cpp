#include "Resolve.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string_view>

#include "StringList/StringList.h"

namespace katlist {

using KATD_SPACE::StringList;
using Record = ItemStore::Record;

namespace {

const char* outcome(OnNested onNested) {
    switch (onNested) {
        case OnNested::keep:
            return "; both stay";
        case OnNested::drop:
            return "; the shorter one stays";
        case OnNested::fail:
            break;
    }
    return "";
}

ItemStore::Ranks ranksOf(const tools::CategoryNames& names) {
    ItemStore::Ranks ranks;
    ranks.fill(std::numeric_limits<std::uint16_t>::max());  // a number without a name comes last
    std::uint16_t rank = 0;
    for (const auto& [name, number] : names.entries()) {
        if (ranks[number] > rank) ranks[number] = rank++;
    }
    return ranks;
}

}  // namespace

// "CATEGORY in FILE:LINE"
std::string Resolver::describe(const Record& record) const {
    const std::string& path = sources_[record.file].path;
    return printable(names_.display(record.category)) + " in " + (path == "-" ? "standard input" : path) +
           ":" + std::to_string(record.line);
}

bool Resolver::isExcepted(const Record& record, const Exceptions& exceptions) const {
    std::string_view host = items_->text(record);
    host = host.substr(0, host.find_first_of("/:"));
    for (bool isWhole = true;; isWhole = false) {
        const auto found = exceptions.find({record.category, std::string(host)});
        if (found != exceptions.end() && (isWhole || found->second)) return true;
        const std::size_t dot = host.find('.');
        if (dot == host.npos) return false;
        host.remove_prefix(dot + 1);
    }
}

void Resolver::removeExcepted(const Exceptions& exceptions) {
    if (exceptions.empty()) return;
    std::vector<Record>& records = items_->records;
    const auto kept = std::remove_if(records.begin(), records.end(),
                                     [&](const Record& record) { return isExcepted(record, exceptions); });
    result_.excepted = static_cast<std::uint64_t>(records.end() - kept);
    records.erase(kept, records.end());
}

void Resolver::removeDuplicates() {
    items_->sort(ranksOf(names_));
    std::vector<Record>& records = items_->records;
    Notes conflicts(stderr, show_);
    std::size_t kept = 0;
    for (const Record& record : records) {
        if (kept == 0 || StringList::cmp(items_->text(record), items_->text(records[kept - 1])) != 0) {
            records[kept++] = record;
            continue;
        }
        const Record& first = records[kept - 1];
        // A derived item is not reported: a conflict was reported for the item that it was made from.
        if (record.category == first.category || record.derived) {
            ++result_.duplicates;
        } else if (conflicts.shows()) {
            conflicts.add("conflict: " + printable(items_->text(record)) + " is " + describe(first) +
                          " and " + describe(record) + "; the first one stays");
        } else {
            conflicts.add();
        }
    }
    records.resize(kept);
    result_.conflicts = conflicts.count();
    conflicts.end("conflicts");
}

void Resolver::removeNested(OnNested onNested) {
    std::vector<Record>& records = items_->records;
    Notes nested(stderr, show_);
    std::vector<Record> above;  // the items that stay and that the next one may begin with; each begins with
                                // the one before it
    std::size_t kept = 0;
    for (const Record& record : records) {
        const char* text = items_->text(record);
        while (!above.empty() && StringList::cmp_sw(text, items_->text(above.back())) != 0)
            above.pop_back();
        if (!above.empty()) {
            const Record& prefix = above.back();
            if (record.category == prefix.category) {
                ++result_.below;
                continue;
            }
            if (nested.shows()) {
                nested.add("nested: " + printable(text) + " is " + describe(record) + ", below " +
                           printable(items_->text(prefix)) + ", which is " + describe(prefix) +
                           outcome(onNested));
            } else {
                nested.add();
            }
            if (onNested != OnNested::keep) continue;
            ++result_.nestedKept;
        }
        above.push_back(record);
        records[kept++] = record;
    }
    records.resize(kept);
    result_.belowOther = nested.count();
    nested.end("nested items");
    if (onNested == OnNested::fail && nested.count() > 0) {
        throw Failure(wrong, std::to_string(nested.count()) +
                                 " items begin with others of another category: remove one of each pair, or "
                                 "choose --on-nested drop or keep");
    }
}

}  // namespace katlist
