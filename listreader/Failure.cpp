#include "listreader/Failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "listreader/Console.h"

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

int runProgram(const char* memoryAdvice, const std::function<int()>& body) {
    const auto end = [](int status, const char* sentence) {
        std::fflush(stdout);
        tell(sentence);
        return status;
    };
    try {
        const int status = body();
        if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
        return end(failed, fileFailure("write to", "standard output", errno).what());
    } catch (const Failure& failure) {
        return end(failure.status, failure.what());
    } catch (const std::bad_alloc&) {
        return end(failed, memoryAdvice);
    } catch (const std::exception& error) {
        return end(failed, error.what());
    }
}

}  // namespace listreader
