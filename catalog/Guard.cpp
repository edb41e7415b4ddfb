#include "Guard.h"

#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <mutex>

namespace catalog {

namespace {

// initial-exec: with dynamic TLS the handler's first access could allocate memory.
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
        // A faulting instruction faults again, now with the default action. A signal sent by kill(2) does
        // not, so raise it again.
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
    // SA_NODEFER: the handler leaves the signal mask unchanged, so siglongjmp() need not restore it.
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
