// The command line of katcatalog.
#ifndef KATCATALOG_ARGUMENTS_H
#define KATCATALOG_ARGUMENTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace katcatalog {

enum class Command { import, update, sync, push, find, stat, check, dump };

// Category of entries without one; see catalog::Builder::noCategory.
constexpr std::int32_t noCategory = 65536;
constexpr std::int32_t highestCategory = 65535;

struct Arguments {
    Command command = Command::import;
    std::string catalog;               // or the address of a store
    std::vector<std::string> inputs;   // or URLs
    std::vector<std::string> removed;  // inputs whose entries are removed
    std::string map;
    std::string passwordFile;
    std::int32_t category = -1;  // of lines that name none; -1: such lines are bad
    bool strict = false;
    bool quiet = false;
    bool json = false;
    bool allowSuffixes = false;
    bool compact = false;
    bool dryRun = false;
    std::uint64_t minItems = 0;
    std::uint64_t maxShrink = 100;  // per cent
    bool all = false;               // read unchanged lists too
    std::uint64_t show = 10;
};

// True: go on. False: end with *status.
bool parseArguments(int argc, const char* const* argv, Arguments* arguments, int* status);

}  // namespace katcatalog

#endif
