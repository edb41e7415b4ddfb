// The destinations of messages.
#ifndef KATD_MESSAGEOUTPUT_H
#define KATD_MESSAGEOUTPUT_H

namespace KATD_SPACE {

// The values of ops.output. Thread-safe; text must not be null.
void printLog(const char* text);
void writeDebugLog(const char* text);

// Messages go to standard output at level 1. Main thread, at the start.
void printMessages();
// Messages go to the debug log of this home, as its settings say. If the log cannot be opened, that is
// reported and nothing changes. Main thread, at the start; may throw std::bad_alloc.
void logMessages(const char* home);

}  // namespace KATD_SPACE

#endif
