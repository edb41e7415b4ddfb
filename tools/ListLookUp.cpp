#include "tools/ListLookUp.h"

#include <cstring>

#include "tools/Text.h"

namespace tools {

namespace {

constexpr std::uint32_t noCategory = static_cast<std::uint32_t>(-1);  // a miss
constexpr std::uint32_t highest = CategoryNames::katdHighest;

std::string answerText(const char* item, std::uint32_t category, const char* relation,
                       const std::string& file, const CategoryNames& names) {
    std::string number = std::to_string(category);
    if (category > highest)
        number = std::to_string(category & highest) + " (of " + number + ", which no reply can hold)";
    const std::string& name = names.nameOf(category & highest);
    if (!name.empty()) number += " (" + printable(name) + ")";
    return "category " + number + ": " + relation + " [" + printable(item) + "] of " + file;
}

const char* pathOf(const std::string& path) {
    return path.empty() ? nullptr : path.c_str();
}

}  // namespace

ListLookUp::ListLookUp(const std::string& urlsFile, const std::string& domainsFile)
    : urlsFile_(urlsFile), domainsFile_(domainsFile) {
    container_.load(pathOf(urlsFile_), pathOf(domainsFile_));
}

bool ListLookUp::explain(const std::string& url, const CategoryNames& names, std::string* text) const {
    std::string key = url;
    std::uint32_t category = noCategory;
    *text += printable(url) + "\n";
    if (container_.getUrlCategory(key.data(), &category)) {
        key.resize(std::strlen(key.c_str()));  // katd normalises in place
        *text += "  looked up as  " + printable(key) + "\n";
    }
    *text += "  answer        ";
    if (category == noCategory) {
        const char* const where = hasUrls() && hasDomains()   ? "it is in neither list"
                                  : hasUrls() || hasDomains() ? "it is not in the list"
                                                              : "there are no lists";
        *text += std::string("none: ") + where + ", katd would ask the engine\n";
        return false;
    }
    // Search each list as the container does, to see which one gave the answer.
    std::uint32_t itsCategory = noCategory;
    const char* item = container_.urlList.find_sw(key.c_str(), &itsCategory);
    if (item != nullptr && itsCategory == category) {
        *text += answerText(item, category, "the URL begins with", urlsFile_, names) + "\n";
    } else {
        item = container_.domainList.find(key.substr(0, key.find('/')).c_str(), &itsCategory);
        *text += answerText(item == nullptr ? "" : item, category, "its host is", domainsFile_, names) + "\n";
    }
    return true;
}

}  // namespace tools
