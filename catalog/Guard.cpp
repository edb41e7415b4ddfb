#include "Guard.h"

#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <mutex>

namespace catalog {

namespace {

// In the static part of the thread's storage: the handler must not allocate it.
__attribute__((tls_model("initial-exec"))) thread_local sigjmp_buf* section = nullptr;

std::mutex installMutex;
unsigned installed = 0;
struct sigaction previousBus;
struct sigaction previousSegv;

void onFault(int signal, siginfo_t* info, void* machine) {
    if (section != nullptr) siglongjmp(*section, 1);
    const struct sigaction& previous = signal == SIGBUS ? previousBus : previousSegv;
    if ((previous.sa_flags & SA_SIGINFO) != 0) {
        previous.sa_sigaction(signal, info, machine);
    } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
        previous.sa_handler(signal);
    } else {
        // The instruction faults again, now with the default action; a signal that was sent has to be sent
        // again.
        ::signal(signal, SIG_DFL);
        if (info->si_code <= 0) raise(signal);
    }
}

}  // namespace

void installFaultGuard() {
    const std::lock_guard<std::mutex> guard(installMutex);
    if (installed++ != 0) return;
    struct sigaction action {};
    action.sa_sigaction = onFault;
    // Not deferred: the mask is not changed, so a jump out of the handler has none to restore.
    action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &previousBus);
    sigaction(SIGSEGV, &action, &previousSegv);
}

void uninstallFaultGuard() {
    const std::lock_guard<std::mutex> guard(installMutex);
    if (--installed != 0) return;
    sigaction(SIGBUS, &previousBus, nullptr);
    sigaction(SIGSEGV, &previousSegv, nullptr);
}

bool runGuarded(void (*body)(void*), void* context) {
    sigjmp_buf place;
    if (sigsetjmp(place, 0) != 0) {
        section = nullptr;
        return false;
    }
    section = &place;
    body(context);
    section = nullptr;
    return true;
}

void endGuarded() {
    if (section == nullptr) std::abort();
    siglongjmp(*section, 1);
}

}  // namespace catalog
