#ifndef KATD_KATDUTIL_DETACHEDTHREAD_H
#define KATD_KATDUTIL_DETACHEDTHREAD_H

namespace KATD_SPACE {

// Starts body(argument) in a thread that nobody joins. stackSize 0: the system's default. Returns 0 or the
// error number of pthread_create(3); errno is left as that call left it.
int startDetachedThread(void* (*body)(void*), void* argument, unsigned stackSize = 0);

}  // namespace KATD_SPACE

#endif
