#ifndef KATD_LOWPRIORITYLOAD_H
#define KATD_LOWPRIORITYLOAD_H

namespace KATD_SPACE {

class UrlContainer;

// UrlContainer::load at a lower priority than the caller's, so that look-ups keep the processors. It runs in
// a thread of its own, since only root may raise a priority again, and returns when the load is done. If no
// thread can be started, the caller loads.
bool loadAtLowPriority(UrlContainer& container, const char* urlsPath, const char* domainsPath);

}  // namespace KATD_SPACE

#endif
