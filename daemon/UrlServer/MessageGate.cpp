#include "UrlServer/MessageGate.h"

#include <unistd.h>

#include <atomic>

namespace KATD_SPACE {

namespace {

std::atomic<bool> isReserved{false};
thread_local bool hasReservation = false;
thread_local bool isMute = false;

}  // namespace

void MessageGate::reserve() {
    hasReservation = true;
    isReserved.store(true, std::memory_order_relaxed);
}

void MessageGate::mute() {
    isMute = true;
}

bool MessageGate::pass() {
    while (isReserved.load(std::memory_order_relaxed) && !hasReservation)
        pause();
    return !isMute;
}

}  // namespace KATD_SPACE
