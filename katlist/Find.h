// katlist find: what katd answers from its lists, and why.
#ifndef KATLIST_FIND_H
#define KATLIST_FIND_H

#include <string>
#include <vector>

#include "Shared.h"

namespace katlist {

struct FindOptions {
    std::string urlsFile, domainsFile;  // empty: none
    std::vector<std::string> urls;      // those before "--", where "-" stands for standard input
    std::vector<std::string> verbatim;  // those behind it
};

// fine when each URL is in a list, else wrong, as for lines that are no URL. Throws Failure, also where katd
// would take nothing from a file.
ExitStatus find(const FindOptions& options);

}  // namespace katlist

#endif
