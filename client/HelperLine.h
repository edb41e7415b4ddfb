// A line in which squid asks.
#ifndef KATC_HELPERLINE_H
#define KATC_HELPERLINE_H

#include <string>
#include <string_view>

namespace katc {

// Parts of the text that was given.
struct HelperLine {
    std::string_view channel;       // the channel-ID; empty: there is none
    std::string_view url;           // the value that is the URL, as squid wrote it; empty: see problem
    const char* problem = nullptr;  // null: the line is one; else a sentence without its end
};

// Takes a line, without its end, apart: "[channel-ID] value value ...". urlField is the number of the value
// that is the URL, from 1; it may not be "-", squid's word for none.
HelperLine parseHelperLine(std::string_view line, bool hasChannels, unsigned urlField);

// Adds to `out` what katd is asked for a URL of squid's: without user information, without the dots that may
// end a host, and without the port unless keepsPort, since lists hold bare hosts; host:port, as of CONNECT,
// becomes the host. isEscaped: the host is unescaped, as values of external_acl_type are. What stands behind
// the host is left as it is: squid does not escape the URL's own escapes again, and katd decodes them. Empty
// when nothing is left.
void appendAsked(std::string_view url, bool isEscaped, bool keepsPort, std::string* out);

}  // namespace katc

#endif
