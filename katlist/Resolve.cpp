#include "Resolve.h"

#include <cstdio>

#include "Shared.h"
#include "StringList/StringList.h"

namespace katlist {

using KATD_SPACE::StringList;
using Record = ItemStore::Record;

namespace {

// "5 in FILE:12"
std::string place(const Record& record, const std::vector<Source>& sources) {
    const std::string& path = sources[record.file].path;
    return std::to_string(record.category) + " in " + (path == "-" ? "standard input" : path) + ":" +
           std::to_string(record.line);
}

const char* whatBecomes(OnNested onNested) {
    switch (onNested) {
        case OnNested::keep:
            return "; both stay";
        case OnNested::drop:
            return "; the upper one stays";
        case OnNested::fail:
            break;
    }
    return "";
}

}  // namespace

void removeDuplicates(ItemStore* items, const std::vector<Source>& sources, std::uint64_t show,
                      Resolved* resolved) {
    std::vector<Record>& records = items->records;
    Notes conflicts(stderr, show);
    std::size_t kept = 0;
    for (const Record& record : records) {
        if (kept == 0 || StringList::cmp(items->text(record), items->text(records[kept - 1])) != 0) {
            records[kept++] = record;
            continue;
        }
        const Record& first = records[kept - 1];
        // What was derived gives way to what somebody wrote; where its origin conflicts, that was told.
        if (record.category == first.category || record.derived) {
            ++resolved->duplicates;
        } else if (conflicts.shows()) {
            conflicts.add("conflict: " + printable(items->text(record)) + " is " + place(first, sources) +
                          " and " + place(record, sources) + "; the first one stays");
        } else {
            conflicts.add();
        }
    }
    records.resize(kept);
    resolved->conflicts = conflicts.count();
    conflicts.end("conflicts");
}

void removeNested(ItemStore* items, const std::vector<Source>& sources, OnNested onNested, std::uint64_t show,
                  Resolved* resolved) {
    std::vector<Record>& records = items->records;
    Notes nested(stderr, show);
    std::vector<Record> above;  // each begins with the one before it; all of them stay
    std::size_t kept = 0;
    for (const Record& record : records) {
        const char* text = items->text(record);
        while (!above.empty() && StringList::cmp_sw(text, items->text(above.back())) != 0)
            above.pop_back();
        if (!above.empty()) {
            const Record& prefix = above.back();
            if (record.category == prefix.category) {
                ++resolved->below;
                continue;
            }
            if (nested.shows()) {
                nested.add("nested: " + printable(text) + " is " + place(record, sources) + ", below " +
                           printable(items->text(prefix)) + ", which is " + place(prefix, sources) +
                           whatBecomes(onNested));
            } else {
                nested.add();
            }
            if (onNested != OnNested::keep) continue;
            ++resolved->nestedKept;
        }
        above.push_back(record);
        records[kept++] = record;
    }
    records.resize(kept);
    resolved->belowOther = nested.count();
    nested.end("nested items");
    if (onNested == OnNested::fail && nested.count() > 0) {
        throw Failure(wrong, std::to_string(nested.count()) +
                                 " items lie below others of another category: remove one of each pair, or "
                                 "choose --on-nested drop or keep");
    }
}

}  // namespace katlist
