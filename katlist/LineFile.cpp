#include "LineFile.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "ExitStatus.h"

namespace katlist {

namespace {

bool isInput(const std::string& path, LineFile::Source source) {
    return source == LineFile::Source::input && path == "-";
}

std::FILE* openFile(const std::string& path, LineFile::Source source) {
    if (isInput(path, source)) return stdin;
    struct stat status {};
    if (source == LineFile::Source::listFile && stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw Failure(failed,
                      "cannot read " + path + " as a list: it is no regular file, save it as one first");
    std::FILE* const stream = std::fopen(path.c_str(), "re");
    if (stream == nullptr) throw fileFailure("open", path, errno);
    return stream;
}

}  // namespace

LineFile::LineFile(const std::string& path, Source source)
    : name(isInput(path, source) ? "standard input" : path), stream_(openFile(path, source)) {}

LineFile::~LineFile() {
    std::free(text);
    std::free(ahead_);
    if (stream_ != stdin) std::fclose(stream_);
}

bool LineFile::next() {
    if (isAheadRead_) {
        isAheadRead_ = false;
        std::swap(text, ahead_);
        std::swap(room_, aheadRoom_);
        length = aheadLength_;
        if (length == 0) return false;
    } else if (!read(&text, &room_, &length)) {
        return false;
    }
    ++number;
    return true;
}

const char* LineFile::peek() {
    if (!isAheadRead_ && !read(&ahead_, &aheadRoom_, &aheadLength_)) aheadLength_ = 0;
    isAheadRead_ = true;
    return aheadLength_ == 0 ? nullptr : ahead_;
}

bool LineFile::read(char** line, std::size_t* room, std::size_t* bytes) {
    errno = 0;
    const ssize_t result = getline(line, room, stream_);
    if (result < 0) {
        if (std::feof(stream_) == 0 || std::ferror(stream_) != 0) throw fileFailure("read", name, errno);
        return false;
    }
    *bytes = static_cast<std::size_t>(result);
    return true;
}

}  // namespace katlist
