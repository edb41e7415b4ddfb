// How katd answers a URL from its lists.
#ifndef KATD_TOOLS_LISTLOOKUP_H
#define KATD_TOOLS_LISTLOOKUP_H

#include <string>

#include "UrlContainer/UrlContainer.h"
#include "tools/CategoryNames.h"

namespace tools {

// Looks URLs up in list files with the daemon's own code. Not thread-safe. Throws std::bad_alloc.
class ListLookUp {
public:
    // Loads the files; an empty path stands for none. Call it once.
    ListLookUp(const std::string& urlsFile, const std::string& domainsFile);

    // False if katd would refuse the file, or there is none.
    bool hasUrls() const { return container_.urlList.loaded; }
    bool hasDomains() const { return container_.domainList.loaded; }

    // Appends lines to *text: the URL, what it is looked up as, and the answer with the item that gave it.
    // False if no list has the URL.
    bool explain(const std::string& url, const CategoryNames& names, std::string* text) const;

private:
    const std::string urlsFile_;
    const std::string domainsFile_;
    KATD_SPACE::UrlContainer container_;
};

}  // namespace tools

#endif
