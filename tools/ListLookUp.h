// How katd answers a URL from its lists.
#ifndef KATD_TOOLS_LISTLOOKUP_H
#define KATD_TOOLS_LISTLOOKUP_H

#include <cstdint>
#include <optional>
#include <string>

#include "UrlContainer/UrlContainer.h"
#include "tools/CategoryNames.h"
#include "tools/ListScan.h"

namespace tools {

// What the lists say of a URL.
struct ListAnswer {
    std::optional<std::string> key;  // what katd looks up; none without lists
    std::string file;                // the list that gives the answer; empty: none does
    std::string item;
    std::uint32_t category = 0;
    bool isPrefix = false;  // the URL begins with the item; else the host is the item
};

// Looks URLs up in list files with the daemon's own code. Not thread-safe. Throws std::bad_alloc.
class ListLookUp {
public:
    enum class Lists {
        loaded,   // for many URLs
        scanned,  // for a few, in little memory; see ListScan
    };

    // Reads the files; an empty path stands for none.
    ListLookUp(const std::string& urlsFile, const std::string& domainsFile, Lists lists);

    // False if katd would refuse the file, or there is none.
    bool hasUrls() const { return container_.urlList.loaded; }
    bool hasDomains() const { return container_.domainList.loaded; }

    ListAnswer find(const std::string& url);
    // The answer in lines of text: the URL, what it is looked up as, and the item with its list.
    std::string text(const std::string& url, const ListAnswer& answer, const CategoryNames& names) const;

private:
    void narrow(const std::string& key);

    const std::string urlsFile_;
    const std::string domainsFile_;
    std::optional<ListScan> urlScan_;
    std::optional<ListScan> domainScan_;
    KATD_SPACE::UrlContainer container_;  // scanned: each list holds the item that the search found
};

}  // namespace tools

#endif
