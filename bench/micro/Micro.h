// The micro-benchmarks, in the order of their files. Each is registered for what the command line names.
#ifndef KATD_BENCH_MICRO_H
#define KATD_BENCH_MICRO_H

#include <benchmark/benchmark.h>

#include <string>

namespace bench {

// Searches in the lists of a pair, of which the one is of URL prefixes, the other of hosts.
void registerSearches(const std::string& urlsPath, const std::string& domainsPath);
// Loads of a list.
void registerLoads(const std::string& path);
// What becomes of a URL before it is searched for; the lists are small ones.
void registerUrls(const std::string& urlsPath, const std::string& domainsPath);
// Messages, to a log in that folder.
void registerMessages(const std::string& folder);

}  // namespace bench

#endif
