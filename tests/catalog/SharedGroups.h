// The contents of a shared store, made from entries.
#pragma once

#include <map>
#include <set>

#include "catalog/Shared.h"
#include "catalog/Writer.h"

namespace catalog {

class SharedGroups {
public:
    void add(const Url& entry, bool instead, const std::vector<std::uint16_t>& categories) {
        EntryKeys keys;
        entryKeys(entry, &keys);
        add(keys.own, instead, categories);
    }
    // The same by the entry's key in a catalogue.
    void add(std::string_view key, bool instead, const std::vector<std::uint16_t>& categories) {
        const SharedPlace place = sharedPlace(key);
        groups_[place.group].push_back({place.port, place.rest, instead, categories});
        for (const std::string& above : place.above) {
            withBelow_.insert(above);
            groups_[above];
        }
    }
    // The values by their keys.
    std::map<std::string, std::string> records() const {
        std::map<std::string, std::string> records;
        for (const auto& [key, entries] : groups_)
            records[key] = encodeGroup(entries, withBelow_.count(key) > 0);
        return records;
    }

private:
    std::map<std::string, std::vector<SharedEntry>> groups_;
    std::set<std::string> withBelow_;
};

}  // namespace catalog
