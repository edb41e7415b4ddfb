// What a test and the library preloaded into its katd share: a file that both have mapped.
#pragma once

#include <atomic>
#include <cstdint>

namespace katd_test {

struct FaultReport {
    std::atomic<std::uint32_t> calls;   // of the chosen functions so far, those that failed included
    std::atomic<std::uint32_t> failed;  // how many of them were made to fail
    std::atomic<std::uint32_t> first;   // number of the first call that fails, from 1 on; 0: none fails
    std::atomic<std::uint32_t> last;    // number of the last one
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "shared by two processes");

}  // namespace katd_test
