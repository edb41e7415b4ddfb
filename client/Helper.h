// katc helper: answers the questions of the proxy squid, line by line, until its input ends.
#ifndef KATC_HELPER_H
#define KATC_HELPER_H

namespace katc {

// Runs the helper with the words of its command line, argv[0] being "helper". The exit status: 0 at the end
// of the input, also when nobody reads the answers any more; 1 when the input cannot be read or an answer not
// be written; 2 when the arguments, the settings or a file cannot be used, which is said on standard error.
// That katd is away is no reason to end. Ends the process itself when an answer cannot be written: other
// threads are reading then.
int helperMain(int argc, const char* const* argv);

}  // namespace katc

#endif
