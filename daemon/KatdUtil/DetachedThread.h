#ifndef KATD_DETACHEDTHREAD_H
#define KATD_DETACHEDTHREAD_H

namespace KATD_SPACE {

// Runs body(argument) in a detached thread with a stack of stackSize bytes; 0 selects the system's default.
// Returns 0 or the error number of pthread_create(3), which leaves errno as that call set it.
int startDetachedThread(void* (*body)(void*), void* argument, unsigned stackSize = 0);

}  // namespace KATD_SPACE

#endif
