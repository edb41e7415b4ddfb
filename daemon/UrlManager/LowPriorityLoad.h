#ifndef KATD_QUIETLOAD_H
#define KATD_QUIETLOAD_H

namespace KATD_SPACE {

class UrlContainer;

// UrlContainer::load at a lower priority than the calling thread's, so that those who ask keep the
// processors: in a thread of its own, since nobody but root may raise a priority again. Returns when that is
// done. Without a thread to be had, it is loaded by the caller.
bool loadQuietly(UrlContainer& container, const char* urlsPath, const char* domainsPath);

}  // namespace KATD_SPACE

#endif
