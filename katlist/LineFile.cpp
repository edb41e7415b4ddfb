#include "LineFile.h"

#include <sys/types.h>

#include <cerrno>
#include <cstdlib>

#include "ExitStatus.h"

namespace katlist {

namespace {

bool isInput(const std::string& path, bool dash) {
    return dash && path == "-";
}

}  // namespace

LineFile::LineFile(const std::string& path, bool dash)
    : name(isInput(path, dash) ? "standard input" : path),
      stream_(isInput(path, dash) ? stdin : std::fopen(path.c_str(), "re")) {
    if (stream_ == nullptr) throw fileFailure("open", path, errno);
}

LineFile::~LineFile() {
    std::free(text);
    if (stream_ != stdin) std::fclose(stream_);
}

bool LineFile::next() {
    errno = 0;
    const ssize_t result = getline(&text, &room_, stream_);
    if (result < 0) {
        if (std::feof(stream_) == 0 || std::ferror(stream_) != 0) throw fileFailure("read", name, errno);
        return false;
    }
    length = static_cast<std::size_t>(result);
    ++number;
    return true;
}

}  // namespace katlist
