#include "tools/ListLookUp.h"

#include <cstring>

#include "UrlContainer/NormalUrl.h"
#include "tools/Text.h"

namespace tools {

using KATD_SPACE::StringList;

namespace {

constexpr std::uint32_t noCategory = static_cast<std::uint32_t>(-1);  // a miss
constexpr std::uint32_t highest = CategoryNames::katdHighest;

std::string answerText(const ListAnswer& answer, const CategoryNames& names) {
    std::string number = std::to_string(answer.category);
    if (answer.category > highest)
        number = std::to_string(answer.category & highest) + " (of " + number + ", which no reply can hold)";
    const std::string& name = names.nameOf(answer.category & highest);
    if (!name.empty()) number += " (" + printable(name) + ")";
    return "category " + number + ": " + (answer.isPrefix ? "the URL begins with" : "its host is") + " [" +
           printable(answer.item) + "] of " + answer.file;
}

const char* pathOf(const std::string& path) {
    return path.empty() ? nullptr : path.c_str();
}

}  // namespace

ListLookUp::ListLookUp(const std::string& urlsFile, const std::string& domainsFile, Lists lists)
    : urlsFile_(urlsFile), domainsFile_(domainsFile) {
    if (lists == Lists::loaded) {
        container_.load(pathOf(urlsFile_), pathOf(domainsFile_));
    } else {
        urlScan_.emplace(urlsFile);
        domainScan_.emplace(domainsFile);
        narrow("");
    }
}

// Reduces the container to the items that the searches for the key and its host end at.
void ListLookUp::narrow(const std::string& key) {
    urlScan_->search(StringList::cmp_sw, key.c_str(), &container_.urlList);
    domainScan_->search(StringList::cmp, key.substr(0, key.find('/')).c_str(), &container_.domainList);
    container_.loaded = hasUrls() || hasDomains();
}

ListAnswer ListLookUp::find(const std::string& url) {
    ListAnswer answer;
    std::string key = url;
    if (urlScan_) {
        KATD_SPACE::normalise(url.c_str(), url.size(), key.data(), hasUrls());
        key.resize(std::strlen(key.c_str()));
        narrow(key);
        key = url;
    }
    std::uint32_t category = noCategory;
    if (!container_.getUrlCategory(key.data(), &category)) return answer;
    key.resize(std::strlen(key.c_str()));  // katd normalises in place
    answer.key = key;
    if (category == noCategory) return answer;
    // Search each list as the container does, to see which one gave the answer.
    answer.category = category;
    std::uint32_t itsCategory = noCategory;
    const char* item = container_.urlList.find_sw(key.c_str(), &itsCategory);
    answer.isPrefix = item != nullptr && itsCategory == category;
    if (!answer.isPrefix) item = container_.domainList.find(key.substr(0, key.find('/')).c_str(), nullptr);
    answer.item = item == nullptr ? "" : item;
    answer.file = answer.isPrefix ? urlsFile_ : domainsFile_;
    return answer;
}

std::string ListLookUp::text(const std::string& url, const ListAnswer& answer,
                             const CategoryNames& names) const {
    std::string text = printable(url) + "\n";
    if (answer.key) text += "  looked up as  " + printable(*answer.key) + "\n";
    if (!answer.file.empty()) return text + "  answer        " + answerText(answer, names) + "\n";
    const char* const where = hasUrls() && hasDomains()   ? "it is in neither list"
                              : hasUrls() || hasDomains() ? "it is not in the list"
                                                          : "there are no lists";
    return text + "  own lists     none: " + where + ", katd asks its engine\n";
}

}  // namespace tools
