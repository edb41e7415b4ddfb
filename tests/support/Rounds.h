// How often a test repeats what is random.
#pragma once

#include <cstdlib>

namespace katd_test {

// `many` with KATD_TESTS_LONG in the environment. A sanitizer makes each round ten times slower.
inline int rounds(int usual, int many) {
    const char* const longRun = std::getenv("KATD_TESTS_LONG");
    if (longRun != nullptr && *longRun != '\0') return many;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return usual / 2;
#else
    return usual;
#endif
}

}  // namespace katd_test
