#include "UrlContainer/UrlContainer.h"

#include <cstring>

#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "UrlContainer";

constexpr std::int32_t noCategory = -1;

}  // namespace

bool UrlContainer::load(const char* urlsPath, const char* domainsPath) {
    QOR_SPACE::Monitor monitor(mutex);
    if (loaded) {
        ERR_MSG("UrlContainer can not load url lists twice, you should reset it first");
        return false;
    }
    if (!urlList.load(urlsPath)) DBG_MSG("fail to load urls list file [%s]", Utils::shown(urlsPath));
    if (!domainList.load(domainsPath))
        DBG_MSG("fail to load domains list file [%s]", Utils::shown(domainsPath));
    loaded = urlList.loaded || domainList.loaded;
    return loaded;
}

void UrlContainer::reset() {
    users = 0;
    urlList.reset();
    domainList.reset();
    loaded = false;
}

bool UrlContainer::getUrlCategory(char* url, std::uint32_t* category) const {
    if (!loaded || url == nullptr || category == nullptr) return false;
    *category = static_cast<std::uint32_t>(noCategory);
    if (!urlList.loaded && !domainList.loaded) return true;
    Utils::removePTP(Utils::toLower(Utils::trim(url)));
    if (*url == '\0') return true;  // in neither list, even where one has an empty item
    std::int32_t found = noCategory;
    if (urlList.loaded) found = checkUrlList(url);
    if (found == noCategory && domainList.loaded) found = checkSiteList(url);
    *category = static_cast<std::uint32_t>(found);
    return true;
}

std::int32_t UrlContainer::checkUrlList(char* url) const {
    char* path = std::strchr(url, '/');
    if (path != nullptr) Utils::decodeHexString(path);
    if (*url == '\0') return noCategory;
    std::uint32_t category = 0;
    const char* item = urlList.find_sw(url, &category);
    if (item == nullptr) return noCategory;
    DBG_MSG("Url matched [%s]", item);
    return static_cast<std::int32_t>(category);
}

std::int32_t UrlContainer::checkSiteList(char* url) const {
    char* path = std::strchr(url, '/');
    if (path != nullptr) *path = '\0';
    std::uint32_t category = 0;
    const char* item = domainList.find(url, &category);
    if (path != nullptr) *path = '/';
    if (item == nullptr) return noCategory;
    DBG_MSG("Site matched :[%s]", item);
    return static_cast<std::int32_t>(category);
}

}  // namespace KATD_SPACE
