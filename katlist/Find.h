// katlist find: explains what katd answers from its lists.
#ifndef KATLIST_FIND_H
#define KATLIST_FIND_H

#include <string>
#include <vector>

#include "Shared.h"

namespace katlist {

struct FindOptions {
    std::string urlsFile, domainsFile;  // empty: none
    std::string categories;             // path of the names of the categories; empty: none
    std::vector<std::string> urls;      // before "--"; "-" is standard input
    std::vector<std::string> verbatim;  // after "--"
};

// fine if each URL is in a list, otherwise wrong, also for lines that are not URLs. Throws Failure, also if
// katd would refuse a file.
ExitStatus find(const FindOptions& options);

}  // namespace katlist

#endif
