// The trace of the calls, for tests that count them.
#ifndef ASAPSDK_TRACE_H
#define ASAPSDK_TRACE_H

#include <string_view>

namespace asapsdk {

// Appends one line to the file that ASAPSDK_TRACE names: see asapsdk.h. Without the variable nothing is done;
// a file that cannot be written is no reason to disturb the call. Any thread may call it; lines are never
// mixed.
void trace(const char* function, std::string_view argument = "-", std::string_view result = "-");

// The same with a handle for the argument: its address, or "null".
void traceHandle(const char* function, const void* handle, std::string_view result = "-");

}  // namespace asapsdk

#endif
