// Reads a mapped file that another program may truncate or damage, and survives the faults.
#ifndef KATD_CATALOG_GUARD_H
#define KATD_CATALOG_GUARD_H

namespace catalog {

// Installs handlers for SIGBUS and SIGSEGV that end a guarded section. Faults outside a section are passed to
// the previous handlers. Calls nest; the last uninstallFaultGuard() restores them. Thread-safe.
void installFaultGuard();
void uninstallFaultGuard();

// Runs body(context) in the calling thread. False if a fault or endGuarded() ended it. It is then left by
// siglongjmp(), without destructors, so the body and everything that it calls must not own resources or take
// locks. Sections do not nest. REQUIRES: installFaultGuard() was called.
bool runGuarded(void (*body)(void*), void* context);

// Ends the calling thread's guarded section; aborts the process outside of one.
[[noreturn]] void endGuarded();

}  // namespace catalog

#endif
