#include "Find.h"

#include <cstdio>
#include <cstring>

#include "Shared.h"
#include "UrlContainer/UrlContainer.h"

namespace katlist {

using KATD_SPACE::UrlContainer;

namespace {

constexpr std::uint32_t noCategory = static_cast<std::uint32_t>(-1);  // a miss

class Finder {
public:
    explicit Finder(const FindOptions& options) : options_(options) {
        for (const std::string* path : {&options.urlsFile, &options.domainsFile}) {
            // Reports why it cannot be read.
            if (!path->empty()) LineFile(*path, LineFile::Source::listFile).next();
        }
        if (!options.categories.empty()) listreader::readNames(options.categories, &names_);
        container_.load(pathOf(options.urlsFile), pathOf(options.domainsFile));
        require(options.urlsFile, container_.urlList.loaded);
        require(options.domainsFile, container_.domainList.loaded);
    }

    void ask(const std::string& url);
    // Each line of standard input.
    void askLines();
    bool foundAll() const { return foundAll_; }

private:
    static const char* pathOf(const std::string& path) { return path.empty() ? nullptr : path.c_str(); }
    static void require(const std::string& path, bool loaded) {
        if (!path.empty() && !loaded)
            throw Failure(wrong, "katd refuses " + path + ": katlist check " + path + " explains why");
    }
    void printHit(const char* item, std::uint32_t category, const char* relation, const std::string& file);

    const FindOptions& options_;
    tools::CategoryNames names_;
    UrlContainer container_;
    bool foundAll_ = true;
};

void Finder::ask(const std::string& url) {
    std::string key = url;
    std::uint32_t category = noCategory;
    container_.getUrlCategory(key.data(), &category);
    key.resize(std::strlen(key.c_str()));  // katd normalises in place
    std::printf("%s\n  looked up as  %s\n", printable(url).c_str(), printable(key).c_str());
    if (category == noCategory) {
        foundAll_ = false;
        const bool both = container_.urlList.loaded && container_.domainList.loaded;
        std::printf("  answer        none: it is %s, katd would ask the engine\n",
                    both ? "in neither list" : "not in the list");
        return;
    }
    // Search each list as the container does, to see which one gave the answer.
    std::uint32_t itsCategory = noCategory;
    const char* item = container_.urlList.find_sw(key.c_str(), &itsCategory);
    if (item != nullptr && itsCategory == category)
        return printHit(item, category, "the URL begins with", options_.urlsFile);
    item = container_.domainList.find(key.substr(0, key.find('/')).c_str(), &itsCategory);
    printHit(item == nullptr ? "" : item, category, "its host is", options_.domainsFile);
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

void Finder::printHit(const char* item, std::uint32_t category, const char* relation,
                      const std::string& file) {
    std::string number = std::to_string(category);
    if (category > 0xff)
        number = std::to_string(category & 0xff) + " (of " + number + ", which no reply can hold)";
    const std::string& name = names_.nameOf(category & 0xff);
    if (!name.empty()) number += " (" + printable(name) + ")";
    std::printf("  answer        category %s: %s [%s] of %s\n", number.c_str(), relation,
                printable(item).c_str(), file.c_str());
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
