#include "helper/RequestLine.h"

#include <algorithm>

namespace katc {

namespace {

bool isNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

// Removes the next value from the front of the line and returns it; empty if there is none.
std::string_view takeValue(std::string_view* line) {
    line->remove_prefix(std::min(line->find_first_not_of(' '), line->size()));
    const std::string_view value = line->substr(0, line->find(' '));
    line->remove_prefix(value.size());
    return value;
}

}  // namespace

RequestLine parseRequestLine(std::string_view line, bool hasChannels, unsigned urlField) {
    RequestLine parsed;
    if (hasChannels) {
        std::string_view rest = line;
        const std::string_view channel = takeValue(&rest);
        if (!isNumber(channel)) {
            parsed.problem =
                "the line has no channel-ID: set concurrency in squid.conf, or leave --concurrency out";
            return parsed;
        }
        parsed.channel = channel;
        line = rest;
    }
    std::string_view value;
    for (unsigned i = 0; i < urlField; ++i)
        value = takeValue(&line);
    if (value.empty() || value == "-") {
        parsed.problem = "the line has no URL where --url-field says, or is too long";
    } else if (!hasChannels && isNumber(value) && !takeValue(&line).empty()) {
        // Squid would abort at an answer without the number if that is a channel-ID.
        parsed.channel = value;
        parsed.problem = missingConcurrency;
    } else {
        parsed.url = value;
    }
    return parsed;
}

}  // namespace katc
