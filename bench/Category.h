// The category of a host in the generated lists. It follows from the first eight characters, so that a server
// without lists can give the right answer, and every answer can be verified.
#ifndef KATD_BENCH_CATEGORY_H
#define KATD_BENCH_CATEGORY_H

#include <cstdint>
#include <cstring>

namespace bench {

constexpr char SCHEME[] = "http://";  // each question begins with it, then the host
constexpr unsigned SCHEME_LENGTH = sizeof(SCHEME) - 1;
constexpr unsigned SHORTEST_HOST = 8;

// REQUIRES: host has SHORTEST_HOST characters.
inline unsigned char categoryOf(const char* host) {
    std::uint64_t head;
    std::memcpy(&head, host, sizeof(head));
    return static_cast<unsigned char>((head * 0x9E3779B97F4A7C15U) >> 56);
}

}  // namespace bench

#endif
