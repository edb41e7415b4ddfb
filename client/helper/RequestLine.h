// The lines in which squid asks.
#ifndef KATC_HELPER_REQUESTLINE_H
#define KATC_HELPER_REQUESTLINE_H

#include <string_view>

namespace katc {

// The strings are parts of the line that was parsed.
struct RequestLine {
    std::string_view channel;       // the channel-ID, which the answer repeats; empty if there is none
    std::string_view url;           // the URL as squid wrote it; empty if there is a problem
    const char* problem = nullptr;  // null if the URL can be asked; else a sentence without its full stop
};

constexpr char missingConcurrency[] =
    "the line has a number for a URL: with concurrency in squid.conf, give --concurrency";

// Parses a line without its line feed: "[channel-ID] value value ...". The URL is value number urlField, from
// 1; it may not be "-", which squid writes for a missing value.
RequestLine parseRequestLine(std::string_view line, bool hasChannels, unsigned urlField);

}  // namespace katc

#endif
