#ifndef KATD_URLCONTAINER_H
#define KATD_URLCONTAINER_H

#include <cstdint>

#include "Mutex.h"
#include "StringList/StringList.h"
#include "UrlContainer/NormalUrl.h"

namespace KATD_SPACE {

// One pair of local lists: URL prefixes and host names. Look-ups may run in parallel; load and reset only
// while none runs, which the UrlManager guarantees. Nothing throws.
class UrlContainer {
public:
    UrlContainer() = default;
    ~UrlContainer() { reset(); }
    UrlContainer(const UrlContainer&) = delete;
    UrlContainer& operator=(const UrlContainer&) = delete;

    // Loads both lists, under `mutex`. Returns true if at least one is loaded; false if none is or the
    // container is loaded already (reported; its lists stay). A null path counts as a file that cannot be
    // opened.
    bool load(const char* urlsPath, const char* domainsPath);
    // Frees the lists and sets `users` to 0. Takes no lock.
    void reset();
    // The same, but moves the lists to `lists`: freeing millions of items takes a while.
    struct Lists {
        StringList urls;
        StringList domains;
    };
    void unlink(Lists* lists);

    // Looks up url in the URL list, then its host in the domain list. url is normalised in place: trimmed, in
    // lower case, without its scheme, and, if there is a URL list, with the escapes in its path decoded (a
    // decoded NUL ends it). Returns true if the look-up ran: *category is the category, or has all bits set
    // if neither list has the URL. A URL of which nothing is left ("", "http://") is in neither list, even if
    // a list has an empty item;
    // "/x", whose host is empty, is looked up. False, with *category unchanged, when the container is not
    // loaded or an argument is null.
    bool getUrlCategory(char* url, std::uint32_t* category) const;
    // The same without changing url: the normalised URL is written to `buffer` of at least length + 1 bytes.
    // REQUIRES: length == strlen(url).
    bool getUrlCategory(const char* url, std::size_t length, char* buffer, std::uint32_t* category) const;
    // The two checks of a normalised url: its category, or -1. The first decodes the path in place and never
    // finds an empty url. The second leaves url as it was; an empty host matches an empty item.
    std::int32_t checkUrlList(char* url) const;
    std::int32_t checkSiteList(char* url) const;

    UrlContainer* peer = nullptr;  // the manager's other container, not owned; null until linked
    std::int32_t users = 0;        // running look-ups; changed under the manager's activeMutex and `mutex`
    QOR_SPACE::Mutex mutex;        // guards users and load
    StringList urlList;            // URL prefixes
    StringList domainList;         // host names
    bool loaded = false;  // a load has succeeded since the last reset; guarded by the manager's locks

private:
    std::int32_t findUrl(const char* url, std::size_t length) const;
    std::int32_t findSite(const char* site, std::size_t length) const;
};

}  // namespace KATD_SPACE

#endif
