#include "Questions.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "UrlServer/Protocol.h"

namespace katc {

namespace {

// A URL as a sentence shows it: whole when it is short.
std::string shown(std::string_view url) {
    constexpr std::size_t limit = 200;
    return "[" + std::string(url.substr(0, limit)) + (url.size() > limit ? "...]" : "]");
}

void tell(const std::string& sentence) {
    std::fprintf(stderr, "katc: %s.\n", sentence.c_str());
}

}  // namespace

Questions::Questions(Connection* connection, bool withRetry)
    : connection_(connection),
      prefix_(withRetry ? KATD_SPACE::PREFIX_RETRIED_QUERY : KATD_SPACE::PREFIX_QUERY) {}

ExitStatus Questions::askAll(const std::vector<std::string>& urls) {
    for (const std::string& url : urls) {
        if (!(url == "-" ? askLines() : askOne(url))) break;
    }
    return status_;
}

bool Questions::askLines() {
    char* text = nullptr;
    std::size_t room = 0;
    bool goOn = true;
    ssize_t size = 0;
    while (goOn && (size = getline(&text, &room, stdin)) >= 0) {
        auto length = static_cast<std::size_t>(size);
        if (length > 0 && text[length - 1] == '\n') --length;
        goOn = askOne(std::string_view(text, length));
    }
    const int error = errno;
    std::free(text);
    if (goOn && std::ferror(stdin)) {
        tell(std::string("cannot read standard input (") + std::strerror(error) +
             "): give it a text file or a pipe");
        status_ = unanswered;
        return false;
    }
    return goOn;
}

bool Questions::askOne(std::string_view url) {
    // The daemon would close the connection for the first, and answer for another URL in the second case.
    if (url.empty() || url.find('\0') != url.npos) {
        tell(url.empty() ? "an empty URL is not asked: write one URL a line"
                         : "a URL with a zero byte is not asked: write one URL a line, as text");
        status_ = unanswered;
        return true;
    }
    Reply reply;
    const ExitStatus status = connection_->ask(prefix_, url, &reply);
    if (status == answered) return print(url, reply);
    tell("no reply for " + shown(url) + ", " + connection_->problem());
    status_ = status;
    return status != noDaemon;
}

bool Questions::print(std::string_view url, const Reply& reply) {
    std::string line(url);
    line += reply.matched ? "\tknown\t" : "\tunknown\t";
    for (std::size_t i = 0; i < reply.categories.size(); ++i) {
        if (i != 0) line += ',';
        line += std::to_string(reply.categories[i]);
    }
    line += '\n';
    if (std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::fflush(stdout) == 0)
        return true;
    tell(std::string("cannot write an answer to standard output (") + std::strerror(errno) +
         "): the URLs from here on are not asked");
    status_ = unanswered;
    return false;
}

ExitStatus sendControl(Connection* connection, std::string_view body) {
    Reply reply;
    const ExitStatus status = connection->ask(KATD_SPACE::PREFIX_CONTROL, body, &reply);
    if (status != answered) tell("the request was not carried out, " + connection->problem());
    return status;
}

}  // namespace katc
