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

void UrlContainer::unlink(Lists* lists) {
    users = 0;
    urlList.swap(lists->urls);
    domainList.swap(lists->domains);
    loaded = false;
}

bool UrlContainer::getUrlCategory(char* url, std::uint32_t* category) const {
    return url != nullptr && getUrlCategory(url, std::strlen(url), url, category);
}

bool UrlContainer::getUrlCategory(const char* url, std::size_t length, char* buffer,
                                  std::uint32_t* category) const {
    if (!loaded || url == nullptr || buffer == nullptr || category == nullptr) return false;
    *category = static_cast<std::uint32_t>(noCategory);
    if (!urlList.loaded && !domainList.loaded) return true;
    const NormalUrl normal = normalise(url, length, buffer, urlList.loaded);
    if (normal.empty()) return true;  // in neither list, even if one has an empty item
    std::int32_t found = noCategory;
    if (urlList.loaded) found = findUrl(buffer, normal.length);
    if (found == noCategory && domainList.loaded) {
        const char afterHost = buffer[normal.hostLength];
        buffer[normal.hostLength] = '\0';
        found = findSite(buffer, normal.hostLength);
        buffer[normal.hostLength] = afterHost;
    }
    *category = static_cast<std::uint32_t>(found);
    return true;
}

std::int32_t UrlContainer::checkUrlList(char* url) const {
    char* path = std::strchr(url, '/');
    if (path != nullptr) Utils::decodeHexString(path);
    return findUrl(url, std::strlen(url));
}

std::int32_t UrlContainer::checkSiteList(char* url) const {
    char* path = std::strchr(url, '/');
    if (path == nullptr) return findSite(url, std::strlen(url));
    *path = '\0';
    const std::int32_t found = findSite(url, static_cast<std::size_t>(path - url));
    *path = '/';
    return found;
}

std::int32_t UrlContainer::findUrl(const char* url, std::size_t length) const {
    if (length == 0) return noCategory;
    std::uint32_t category = 0;
    const char* item = urlList.find_sw(url, length, &category);
    if (item == nullptr) return noCategory;
    DBG_MSG("Url matched [%s]", item);
    return static_cast<std::int32_t>(category);
}

std::int32_t UrlContainer::findSite(const char* site, std::size_t length) const {
    std::uint32_t category = 0;
    const char* item = domainList.find(site, length, &category);
    if (item == nullptr) return noCategory;
    DBG_MSG("Site matched :[%s]", item);
    return static_cast<std::int32_t>(category);
}

}  // namespace KATD_SPACE
