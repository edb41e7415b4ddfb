#include "Answers.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace katc {

namespace {

// A URL as a sentence shows it: whole when it is short.
std::string shown(std::string_view url) {
    constexpr std::size_t limit = 200;
    return "[" + std::string(url.substr(0, limit)) + (url.size() > limit ? "...]" : "]");
}

}  // namespace

void tell(const std::string& sentence) {
    std::fprintf(stderr, "katc: %s.\n", sentence.c_str());
}

void Answers::add(std::string_view url, const katclient_answer& answer) {
    if (json_) {
        text_ += jsonAnswer(url, answer, names_);
        return;
    }
    text_ += url;
    text_ += answer.known != 0 ? "\tknown\t" : "\tunknown\t";
    for (unsigned i = 0; i < answer.count; ++i) {
        if (i != 0) text_ += ',';
        const std::uint8_t category = answer.categories[i];
        if (names_ != nullptr && !names_->nameOf(category).empty())
            text_ += names_->nameOf(category);
        else
            text_ += std::to_string(category);
    }
    text_ += '\n';
}

void Answers::addFailure(std::string_view url, std::string_view sentence) {
    if (json_)
        text_ += jsonFailure(url, sentence);
    else
        tell("no reply for " + shown(url) + ", " + std::string(sentence));
}

bool Answers::write() {
    const bool written =
        std::fwrite(text_.data(), 1, text_.size(), stdout) == text_.size() && std::fflush(stdout) == 0;
    text_.clear();
    if (!written) {
        tell(std::string("cannot write an answer to standard output (") + std::strerror(errno) +
             "): the URLs from here on are not asked");
    }
    return written;
}

}  // namespace katc
