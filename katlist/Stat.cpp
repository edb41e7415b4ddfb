#include "Stat.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>

#include "Shared.h"
#include "StringList/StringList.h"
#include "tools/Json.h"

namespace katlist {

using KATD_SPACE::StringList;

namespace {

struct Share {
    std::uint64_t items = 0;
    std::uint64_t bytes = 0;  // of the items with their terminators, and of the entries
};
using Shares = std::map<std::int32_t, Share>;

Shares sharesOf(const StringList& list) {
    Shares shares;
    for (std::size_t i = 0; i < static_cast<std::size_t>(list.count); ++i) {
        const StringList::Entry& entry = list.entries[i];
        Share& share = shares[static_cast<std::int32_t>(entry.category)];
        ++share.items;
        share.bytes += std::strlen(list.buffer.get() + entry.offset) + 1 + sizeof(StringList::Entry);
    }
    return shares;
}

void printJson(const std::string& file, std::int32_t items, std::uint64_t bytes, const Shares& shares,
               const tools::CategoryNames& names) {
    tools::Json categories = tools::Json::array();
    for (const auto& [category, share] : shares) {
        tools::Json one = {{"category", category}};
        const std::string& name = names.nameOf(static_cast<std::uint32_t>(category));
        if (!name.empty()) one["name"] = name;
        one["items"] = share.items;
        one["bytes"] = share.bytes;
        categories.push_back(one);
    }
    const tools::Json all = {{"file", file}, {"items", items}, {"bytes", bytes}, {"categories", categories}};
    // A path or name may contain bytes that are not UTF-8.
    std::printf("%s\n", tools::jsonText(all, 2).c_str());
}

void printTable(std::int32_t items, std::uint64_t bytes, const Shares& shares,
                const tools::CategoryNames& names) {
    std::printf("%8s %12s %14s%s\n", "category", "items", "bytes", names.empty() ? "" : "  name");
    for (const auto& [category, share] : shares) {
        const std::string& name = names.nameOf(static_cast<std::uint32_t>(category));
        std::printf("%8d %12llu %14llu%s%s\n", static_cast<int>(category),
                    static_cast<unsigned long long>(share.items),
                    static_cast<unsigned long long>(share.bytes), name.empty() ? "" : "  ",
                    printable(name).c_str());
    }
    std::printf("%8s %12d %14llu\n", "all", static_cast<int>(items), static_cast<unsigned long long>(bytes));
}

}  // namespace

void stat(const StatOptions& options) {
    tools::CategoryNames names;
    if (!options.categories.empty()) listreader::readNames(options.categories, &names);
    LineFile(options.file, LineFile::Source::listFile).next();  // reports why it cannot be read
    StringList list;
    if (!list.load(options.file.c_str())) {
        throw Failure(wrong,
                      "katd refuses " + options.file + ": katlist check " + options.file + " explains why");
    }
    const Shares shares = sharesOf(list);
    // The buffer is a few bytes larger than the items, or much larger if the first line says so.
    const std::uint64_t bytes = static_cast<std::uint64_t>(list.bufferSize) +
                                static_cast<std::uint64_t>(list.count) * sizeof(StringList::Entry);
    if (options.json) {
        printJson(options.file, list.count, bytes, shares, names);
    } else {
        printTable(list.count, bytes, shares, names);
    }
}

}  // namespace katlist
