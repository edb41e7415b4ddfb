// A trace of the calls, for tests that count them.
#ifndef ASAPSDK_TRACE_H
#define ASAPSDK_TRACE_H

#include <string_view>

namespace asapsdk {

// Appends one line to the file named by ASAPSDK_TRACE (see asapsdk.h), if it is set and the file can be
// written. Thread-safe: lines are not mixed.
void trace(const char* function, std::string_view argument = "-", std::string_view result = "-");

// The same with a handle as the argument: its address, or "null".
void traceHandle(const char* function, const void* handle, std::string_view result = "-");

}  // namespace asapsdk

#endif
