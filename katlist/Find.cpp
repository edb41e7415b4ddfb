#include "Find.h"

#include <cstdio>
#include <cstring>
#include <optional>

#include "Shared.h"
#include "tools/ListLookUp.h"

namespace katlist {

namespace {

class Finder {
public:
    explicit Finder(const FindOptions& options) {
        for (const std::string* path : {&options.urlsFile, &options.domainsFile}) {
            // Reports why it cannot be read.
            if (!path->empty()) LineFile(*path, LineFile::Source::listFile).next();
        }
        if (!options.categories.empty()) listreader::readNames(options.categories, &names_);
        lists_.emplace(options.urlsFile, options.domainsFile, tools::ListLookUp::Lists::loaded);
        require(options.urlsFile, lists_->hasUrls());
        require(options.domainsFile, lists_->hasDomains());
    }

    void ask(const std::string& url);
    // Each line of standard input.
    void askLines();
    bool foundAll() const { return foundAll_; }

private:
    static void require(const std::string& path, bool loaded) {
        if (!path.empty() && !loaded)
            throw Failure(wrong, "katd refuses " + path + ": katlist check " + path + " explains why");
    }
    tools::CategoryNames names_;
    std::optional<tools::ListLookUp> lists_;
    bool foundAll_ = true;
};

void Finder::ask(const std::string& url) {
    const tools::ListAnswer answer = lists_->find(url);
    foundAll_ = foundAll_ && !answer.file.empty();
    const std::string text = lists_->text(url, answer, names_);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void Finder::askLines() {
    LineFile input("-");
    while (input.next()) {
        const std::size_t length = std::strcspn(input.text, "\r\n");
        const bool hasZero = std::memchr(input.text, '\0', input.length) != nullptr;
        if (length > 0 && !hasZero) {
            ask(std::string(input.text, length));
            continue;
        }
        foundAll_ = false;
        tell(input.name + ":" + std::to_string(input.number) + ": " +
             (hasZero ? "a URL with a zero byte is not looked up: write one URL per line, as text"
                      : "an empty URL is not looked up: write one URL per line"));
    }
}

}  // namespace

ExitStatus find(const FindOptions& options) {
    Finder finder(options);
    for (const std::string& url : options.urls) {
        if (url == "-") {
            finder.askLines();
        } else {
            finder.ask(url);
        }
    }
    for (const std::string& url : options.verbatim)
        finder.ask(url);
    return finder.foundAll() ? fine : wrong;
}

}  // namespace katlist
