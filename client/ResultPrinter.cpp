#include "ResultPrinter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/AnswerJson.h"
#include "tools/Text.h"

namespace katc {

void report(std::string_view sentence) {
    tools::printError("katc", sentence);
}

void ResultPrinter::add(std::string_view url, const katclient_answer& answer) {
    if (json_) {
        text_ += tools::answerJson(url, answer, names_) + '\n';
        return;
    }
    tools::appendPrintable(url, &text_);
    text_ += answer.known != 0 ? "\tknown\t" : "\tunknown\t";
    for (unsigned i = 0; i < answer.count; ++i) {
        if (i != 0) text_ += ',';
        const unsigned category = answer.categories[i];
        text_ += names_ != nullptr ? tools::printable(names_->display(category)) : std::to_string(category);
    }
    text_ += '\n';
}

void ResultPrinter::addFailure(std::string_view url, std::string_view reason) {
    constexpr std::size_t maxShown = 200;  // bytes of a URL
    if (json_)
        text_ += tools::failureJson(url, reason) + '\n';
    else
        report("no reply for [" + tools::printable(url, maxShown) + "], " + std::string(reason));
}

bool ResultPrinter::write() {
    const bool isWritten =
        std::fwrite(text_.data(), 1, text_.size(), stdout) == text_.size() && std::fflush(stdout) == 0;
    text_.clear();
    if (!isWritten) {
        report(std::string("cannot write an answer to standard output (") + std::strerror(errno) +
               "): no more URLs are asked");
    }
    return isWritten;
}

}  // namespace katc
