#ifndef KATD_BENCH_SOCKETS_H
#define KATD_BENCH_SOCKETS_H

#include <cstddef>
#include <string>

namespace bench {

// A listening socket; replaces what is at the path. Ends the process on failure.
int listenOn(const std::string& path);
// A connection, or -1 with errno set.
int connectTo(const std::string& path);
// Whether all bytes were written.
bool writeAll(int fd, const char* bytes, std::size_t size);

}  // namespace bench

#endif
