// Command lines of the benchmark programs.
#ifndef KATD_BENCH_OPTIONS_H
#define KATD_BENCH_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct ServerOptions {
    std::string socket;
    unsigned reads = 2;
    unsigned writes = 2;
    bool asksEngine = false;
};

struct ClientOptions {
    std::string socket;               // empty with a helper
    std::vector<std::string> helper;  // command of a squid helper to ask instead
    std::string questions;            // path
    unsigned connections = 1;         // busy ones
    unsigned window = 1;              // requests in flight on each
    int idle = -1;                    // connections held open after one request; -1: none, and none reported
    double seconds = 1;               // measured
    double warmUp = 0.1;              // seconds before the measurement
    std::uint64_t count = 0;          // ends after this many requests; 0: no limit
    bool reconnects = false;          // a connection for each request
};

struct ListOptions {
    unsigned items = 1000;
    std::uint64_t seed = 1;
    bool areDomains = false;  // else prefixes of URLs
    std::string output;
    std::string questions;  // path; empty: none
    unsigned questionCount = 100000;
    unsigned hitPercent = 100;
};

struct HelperOptions {
    std::vector<std::string> lists;
    bool gathers = false;  // one write for all answers to a read
};

// Each reads argv into *options. Ends the process for --help, --version (status 0) and bad usage (2).
void parse(int argc, const char* const* argv, ServerOptions* options);
void parse(int argc, const char* const* argv, ClientOptions* options);
void parse(int argc, const char* const* argv, ListOptions* options);
void parse(int argc, const char* const* argv, HelperOptions* options);

}  // namespace bench

#endif
