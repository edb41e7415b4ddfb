#ifndef KATD_ENGINE_SIGNALSBLOCKED_H
#define KATD_ENGINE_SIGNALSBLOCKED_H

#include <pthread.h>

#include <csignal>

namespace engine {

// While it lives, the calling thread blocks all signals. Threads started meanwhile keep that: they must not
// take signals that are meant for katd's threads.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

}  // namespace engine

#endif
