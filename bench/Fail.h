#ifndef KATD_BENCH_FAIL_H
#define KATD_BENCH_FAIL_H

namespace bench {

// Prints the program's name and the sentence on standard error, and ends the process with status 1.
[[noreturn]] __attribute__((format(printf, 1, 2))) void fail(const char* format, ...);

}  // namespace bench

#endif
