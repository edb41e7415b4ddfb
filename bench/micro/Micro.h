// Functions that register the micro-benchmarks for the arguments of the command line.
#ifndef KATD_BENCH_MICRO_H
#define KATD_BENCH_MICRO_H

#include <benchmark/benchmark.h>

#include <string>

namespace bench {

// Searches in a list of URL prefixes and a list of hosts.
void registerSearches(const std::string& urlsPath, const std::string& domainsPath);
// Loads of a list.
void registerLoads(const std::string& path);
// Normalising a URL and looking it up in small lists.
void registerUrls(const std::string& urlsPath, const std::string& domainsPath);
// Messages to a log in that folder.
void registerMessages(const std::string& folder);

}  // namespace bench

#endif
