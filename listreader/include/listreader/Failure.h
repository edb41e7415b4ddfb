// How the list programs end, and the exception that carries the status to main.
#ifndef LISTREADER_FAILURE_H
#define LISTREADER_FAILURE_H

#include <functional>
#include <stdexcept>
#include <string>

namespace listreader {

enum ExitStatus {
    fine = 0,      // done; nothing is wrong
    wrong = 1,     // something is wrong with an input or a list, or a URL is not listed
    badUsage = 2,  // the command line
    failed = 3,    // a file cannot be read or written, or out of memory
};

// Ends the program with a status and one sentence on standard error, which says what is wrong and what to do.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus exitStatus, const std::string& sentence)
        : std::runtime_error(sentence), status(exitStatus) {}

    const ExitStatus status;
};

// The failure of a system call on a file; `error` is its errno. "cannot WHAT PATH: REASON: ADVICE"
Failure fileFailure(const std::string& what, const std::string& path, int error);

// Calls the body of main and flushes standard output. What the body throws, or a failure of standard output,
// becomes a sentence and a status. `memoryAdvice` is the sentence for std::bad_alloc.
int runProgram(const char* memoryAdvice, const std::function<int()>& body);

}  // namespace listreader

#endif
