// How katlist ends, and the exception that carries it to main.
#ifndef KATLIST_EXITSTATUS_H
#define KATLIST_EXITSTATUS_H

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace katlist {

enum ExitStatus {
    fine = 0,      // done; every URL has an answer; nothing is wrong with the lists
    wrong = 1,     // something is wrong with an input or a list, or a URL is in no list
    badUsage = 2,  // the command line
    failed = 3,    // a file cannot be read or written, or memory is short
};

// Ends the program with a status and one sentence on standard error, which says what is wrong and what to do.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus exitStatus, const std::string& sentence)
        : std::runtime_error(sentence), status(exitStatus) {}

    const ExitStatus status;
};

// What somebody may do about a failed system call on a file; `error` is its errno.
inline const char* whatToDo(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return "see whether the path is right";
        case EISDIR:
            return "name a file";
        case EACCES:
        case EPERM:
            return "see to its permissions, or run katlist as its owner";
        case EROFS:
            return "name a place that can be written";
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return "make room there, or name another place";
        default:
            return "see whether its disk is in order, then try again";
    }
}

// The failure of a system call on a file; `error` is its errno.
inline Failure fileFailure(const std::string& what, const std::string& path, int error) {
    return {failed, "cannot " + what + " " + path + ": " + std::strerror(error) + ": " + whatToDo(error)};
}

}  // namespace katlist

#endif
