#ifndef KATD_URLCONTAINER_H
#define KATD_URLCONTAINER_H

#include <cstdint>

#include "Mutex.h"
#include "StringList/StringList.h"
#include "UrlContainer/NormalUrl.h"

namespace KATD_SPACE {

// One pair of local lists: prefixes of URLs and host names. Its UrlManager sees to it that it is loaded and
// reset only while no look-up runs on it; look-ups may run in parallel. Nothing throws.
class UrlContainer {
public:
    UrlContainer() = default;
    ~UrlContainer() { reset(); }
    UrlContainer(const UrlContainer&) = delete;
    UrlContainer& operator=(const UrlContainer&) = delete;

    // Loads both lists, under `mutex`. True when at least one is loaded. False when none is, or when the
    // container was loaded and not reset (reported; its lists stay). A null path is a list that cannot be
    // opened.
    bool load(const char* urlsPath, const char* domainsPath);
    // Empties it and sets `users` to 0. Takes no lock.
    void reset();
    // The same, but changes its lists with those of `lists`: to release millions of items takes its time.
    struct Lists {
        StringList urls;
        StringList domains;
    };
    void unlink(Lists* lists);

    // Looks url up, first in the URL list, then its host in the domain list. url is changed in place:
    // trimmed, lower case, without its scheme, escapes in its path decoded (a decoded zero byte ends it).
    // True when the look-up ran: *category is the category then, or all bits set when neither list has it.
    // A URL of which nothing is left ("", "http://") is in neither list, even if a list has an empty item;
    // "/x", whose host is empty, is looked up. False, with *category unchanged, when the container is not
    // loaded or an argument is null.
    bool getUrlCategory(char* url, std::uint32_t* category) const;
    // The same for a URL that stays as it is, of `length` bytes: `room`, of at least length + 1 bytes, takes
    // what it is changed to, or stays as it is. REQUIRES: length == strlen(url).
    bool getUrlCategory(const char* url, std::size_t length, char* room, std::uint32_t* category) const;
    // The two checks of a normalised url: its category, or -1. The first decodes the path in place and never
    // finds an empty url. The second leaves url as it was; an empty host matches an empty item.
    std::int32_t checkUrlList(char* url) const;
    std::int32_t checkSiteList(char* url) const;

    UrlContainer* peer = nullptr;  // the manager's other container, not owned; null until linked
    std::int32_t users = 0;  // look-ups running; under the manager's activeMutex and `mutex`; reset() and
                             // unlink() under the former
    QOR_SPACE::Mutex mutex;  // guards users and load
    StringList urlList;      // prefixes of URLs
    StringList domainList;   // host names
    bool loaded = false;     // load succeeded, until reset; under the manager's locks

private:
    std::int32_t findUrl(const char* url, std::size_t length) const;
    std::int32_t findSite(const char* site, std::size_t length) const;
};

}  // namespace KATD_SPACE

#endif
