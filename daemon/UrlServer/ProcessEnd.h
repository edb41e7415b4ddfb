// How katd ends while other threads run: static destructors are not run, and no lock that another thread or
// another process holds delays the end for long.
#ifndef KATD_PROCESSEND_H
#define KATD_PROCESSEND_H

namespace KATD_SPACE {

// Time in milliseconds for what may still block between the decision to end and the end.
constexpr int endGraceMs = 700;

// From now on the process ends with this status after that many milliseconds, whatever any thread waits for:
// a kernel timer expires and its handler calls _exit(2). An earlier end that is already set stays, with its
// own status. Uses SIGALRM and ITIMER_REAL (setitimer(2)) and unblocks SIGALRM in the calling thread.
// Thread-safe.
void endWithin(int status, int milliseconds);

// The same, but replaces the end that is set even if that one is earlier: for work with a time limit of its
// own.
void postponeEnd(int status, int milliseconds);

// Flushes standard output and ends the process with this status, within endGraceMs. No destructors run.
[[noreturn]] void endProcess(int status);

}  // namespace KATD_SPACE

#endif
