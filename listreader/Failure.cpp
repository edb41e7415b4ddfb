#include "listreader/Failure.h"

#include <cerrno>
#include <cstring>

namespace listreader {

namespace {

const char* advice(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return "check the path";
        case EISDIR:
            return "name a file";
        case EACCES:
        case EPERM:
            return "check its permissions, or run this program as its owner";
        case EROFS:
            return "choose a writable folder";
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return "free space there, or choose another folder";
        default:
            return "check the disk, then try again";
    }
}

}  // namespace

Failure fileFailure(const std::string& what, const std::string& path, int error) {
    return {failed, "cannot " + what + " " + path + ": " + std::strerror(error) + ": " + advice(error)};
}

}  // namespace listreader
