// Reading mapped memory that another program may cut off, and pages that may be damaged, without dying of it.
#ifndef KATD_CATALOG_GUARD_H
#define KATD_CATALOG_GUARD_H

namespace catalog {

// Installs handlers for SIGBUS and SIGSEGV that end a guarded section; other faults go to the handlers that
// were there before. Calls nest: the last uninstall puts those back. Thread-safe.
void installFaultGuard();
void uninstallFaultGuard();

// Runs body(context) in the calling thread. False when it was ended by a fault or by endGuarded(): it stopped
// where it was, without running destructors. So the body owns nothing, takes no lock and calls nothing that
// does. Sections do not nest. REQUIRES: installFaultGuard() was called.
bool runGuarded(void (*body)(void*), void* context);

// Ends the calling thread's guarded section; outside of one it aborts.
[[noreturn]] void endGuarded();

}  // namespace catalog

#endif
