// How katd ends while other threads work: without static destructors under their feet, and without waiting
// for ever for a lock that one of them, or another process, holds.
#ifndef KATD_URLSERVER_PROCESSEND_H
#define KATD_URLSERVER_PROCESSEND_H

namespace KATD_SPACE {

// What may still block between the decision to end and the end gets this long, in milliseconds.
constexpr int endGraceMs = 700;

// From now on the process ends with status after that many milliseconds, whatever any thread waits for: the
// kernel's timer runs out and its handler calls _exit(2). Uses SIGALRM and ITIMER_REAL (setitimer(2)). A
// later call replaces an earlier one. Any thread; the caller's signal mask lets SIGALRM through afterwards.
void endWithin(int status, int milliseconds);

// Takes the last endWithin() back.
void cancelEnd();
// Whether an endWithin() is in force.
bool endIsBounded();

// From now on the calling thread alone is heard: the messages of others wait for the end. The log's mutex is
// not fair, so that busy threads could keep the last message from getting out in time.
void speakAlone();
// From now on nothing is heard of the calling thread: it has more important work than to wait for a log that
// somebody else holds.
void stayMute();
// For those who put messages out: whether this thread is to be heard. Waits for the end while another speaks
// alone.
bool mayBeHeard();

// Flushes standard output and ends the process with status, within endGraceMs. No destructors run.
[[noreturn]] void endProcess(int status);

}  // namespace KATD_SPACE

#endif
