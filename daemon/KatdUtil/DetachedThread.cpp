#include "KatdUtil/DetachedThread.h"

#include <pthread.h>

namespace KATD_SPACE {

int startDetachedThread(void* (*body)(void*), void* argument, unsigned stackSize) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) return error;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread;
    error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace KATD_SPACE
