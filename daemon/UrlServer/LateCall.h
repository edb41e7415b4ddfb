// What happens when a call of the engine exceeds its time limit: the reports, and how they are made without a
// thread.
#ifndef KATD_LATECALL_H
#define KATD_LATECALL_H

namespace KATD_SPACE {

enum class LateCall { NETWORK_CHECK, QUERY };

// Reports the call and ends the process with status 1: after a query within a second, after the network check
// as endForNetwork() does. Not for signal handlers, and not for the thread that makes the call.
[[noreturn]] void endForLateCall(LateCall call, const char* url, int limitSec);

// The same where no thread can be created to watch the call, and the late call is interrupted by a signal:
// nothing can be logged from there, since the call may hold any lock. The process executes its own program
// again, with the report to make in the environment variable KATD_LATE_CALL. The new image has no hung call
// and no locks; it makes the report and ends the process. A second katd stays locked out meanwhile.
class LateCallExecution {
public:
    // Takes over what the process was started with. Main thread, before the first call is watched. pidFile is
    // the locked descriptor that the new image keeps.
    static void prepare(char** argv, int pidFile);

    // In the new image: makes the report and does not return. Otherwise returns at once. Main thread, at the
    // start.
    static void reportIfRequested();

    // The report on one call, put together while the process is sound.
    LateCallExecution(LateCall call, const char* url, int limitSec);

    // Executes the program again; ends the process with status 1 if that fails. Async-signal-safe.
    [[noreturn]] void execute() const;

private:
    char variable[1200];  // "KATD_LATE_CALL=...", the URL cut to fit
};

}  // namespace KATD_SPACE

#endif
