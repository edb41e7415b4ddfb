#ifndef KATD_URLSERVER_DETACHEDTHREAD_H
#define KATD_URLSERVER_DETACHEDTHREAD_H

namespace KATD_SPACE {

// Bytes of stack of a connection's thread: a 32-bit process serves thousands of them.
constexpr unsigned CONNECTION_STACK_SIZE = 512 * 1024;

// Starts body(argument) in a thread that nobody joins. stackSize 0: the system's default. Returns 0 or the
// error number of pthread_create(3); errno is left as that call left it.
int startDetachedThread(void* (*body)(void*), void* argument, unsigned stackSize = 0);

}  // namespace KATD_SPACE

#endif
