#include "listreader/LineFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "listreader/Failure.h"

namespace listreader {

namespace {

constexpr std::size_t blockSize = 1U << 18U;                           // bytes of one read
constexpr std::size_t capacity = LineFile::lineLimit + 2 * blockSize;  // one byte more holds the terminator

struct Compression {
    std::string_view magic;
    const char* name;
    const char* unpack;
};
constexpr Compression compressions[] = {{"\x1f\x8b", "gzip", "gunzip or zcat"},
                                        {"\xfd"
                                         "7zXZ",
                                         "xz", "unxz or xzcat"},
                                        {"BZh91AY&SY", "bzip2", "bunzip2 or bzcat"},
                                        {"\x28\xb5\x2f\xfd", "zstd", "unzstd or zstdcat"},
                                        {"PK\x03\x04", "zip", "unzip"}};

bool isInput(const std::string& path, LineFile::Source source) {
    return source == LineFile::Source::input && path == "-";
}

int openFile(const std::string& path, LineFile::Source source) {
    if (isInput(path, source)) return STDIN_FILENO;
    struct stat status {};
    if (source == LineFile::Source::listFile && stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw Failure(failed,
                      "cannot read " + path + " as a list: it is not a regular file, save it as one first");
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) throw fileFailure("open", path, errno);
    return fd;
}

}  // namespace

LineFile::LineFile(const std::string& path, Source source)
    : name(isInput(path, source) ? "standard input" : path),
      fd_(openFile(path, source)),
      buffer_(new char[capacity + 1]) {}

LineFile::~LineFile() {
    if (fd_ != STDIN_FILENO) close(fd_);
}

bool LineFile::next() {
    if (text != nullptr) restore();
    begin_ += length;
    dropped = 0;
    std::size_t searched = 0;
    const void* lineFeed = nullptr;
    while (lineFeed == nullptr) {
        char* const begin = buffer_.get() + begin_;
        lineFeed = std::memchr(begin + searched, '\n', end_ - begin_ - searched);
        if (lineFeed != nullptr) {
            length = static_cast<std::size_t>(static_cast<const char*>(lineFeed) - begin) + 1;
            break;
        }
        searched = end_ - begin_;
        if (searched >= lineLimit) break;
        if (!fill()) {
            length = searched;
            break;
        }
        if (number == 0 && begin_ == 0) checkFormat();
    }
    if (lineFeed == nullptr && searched >= lineLimit) dropRest();
    if (length > lineLimit) dropRest();
    if (begin_ == end_) {
        length = 0;
        text = nullptr;
        return false;
    }
    ++number;
    terminate();
    return true;
}

std::string LineFile::peek(std::size_t bytes) {
    restore();
    while (end_ - begin_ - length < bytes && end_ - begin_ < capacity - blockSize && fill()) {
    }
    const char* const behind = buffer_.get() + begin_ + length;
    std::string result(behind, std::min(bytes, static_cast<std::size_t>(end() - behind)));
    terminate();
    return result;
}

// Reads a block; false at the end of the file. What was not handed out may move to the front.
bool LineFile::fill() {
    if (capacity - end_ < blockSize) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    ssize_t result = 0;
    do {
        result = read(fd_, end(), std::min(blockSize, capacity - end_));
    } while (result < 0 && errno == EINTR);
    if (result < 0) throw fileFailure("read", name, errno);
    end_ += static_cast<std::size_t>(result);
    return result > 0;
}

// Keeps lineLimit bytes of a line, and removes the rest up to its line feed from the buffer.
void LineFile::dropRest() {
    length = lineLimit;
    for (;;) {
        char* const rest = buffer_.get() + begin_ + lineLimit;
        const std::size_t bytes = static_cast<std::size_t>(end() - rest);
        const char* const lineFeed = static_cast<const char*>(std::memchr(rest, '\n', bytes));
        const std::size_t ofLine = lineFeed == nullptr ? bytes : static_cast<std::size_t>(lineFeed - rest);
        dropped += ofLine;
        const std::size_t removed = lineFeed == nullptr ? ofLine : ofLine + 1;
        std::memmove(rest, rest + removed, bytes - removed);
        end_ -= removed;
        if (lineFeed != nullptr || !fill()) return;
    }
}

void LineFile::checkFormat() const {
    const std::string_view start(buffer_.get(), end_);
    for (const Compression& compression : compressions) {
        if (start.substr(0, compression.magic.size()) == compression.magic) {
            throw Failure(wrong, name + " is compressed by " + compression.name + ": unpack it first, with " +
                                     compression.unpack);
        }
    }
}

void LineFile::terminate() {
    text = buffer_.get() + begin_;
    kept_ = text[length];
    text[length] = '\0';
}

void LineFile::restore() {
    text[length] = kept_;
}

}  // namespace listreader
