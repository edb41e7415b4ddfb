// A file read line by line, with bounded memory.
#ifndef LISTREADER_LINEFILE_H
#define LISTREADER_LINEFILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace listreader {

// Owns the descriptor and the lines. One thread. Throws Failure if the file cannot be opened or read, or is
// compressed.
class LineFile {
public:
    // input: anything, "-" being standard input. listFile: a regular file. Such a file is read more than
    // once; a pipe would block, and gives its lines only once.
    enum class Source { input, listFile };

    // The longest line in bytes, line feed included. Of a longer one the rest is skipped.
    static constexpr std::size_t lineLimit = 1U << 20U;

    explicit LineFile(const std::string& path, Source source = Source::input);
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    // Reads the next line into `text`; false at the end of the file.
    bool next();
    // Up to `bytes` bytes that follow the current line. Call it after next(); `text` may move.
    std::string peek(std::size_t bytes);

    const std::string name;     // for messages
    char* text = nullptr;       // the line with its line feed, NUL-terminated; writable; valid until next()
    std::size_t length = 0;     // its bytes, zero bytes and the line feed included
    std::uint64_t dropped = 0;  // bytes of the line beyond lineLimit, without its line feed
    std::uint64_t number = 0;   // counted from 1

private:
    bool fill();
    void dropRest();
    void checkFormat() const;
    char* end() const { return buffer_.get() + end_; }
    // The byte behind the line is replaced by the terminator while the caller holds the line.
    void terminate();
    void restore();

    int fd_;
    std::unique_ptr<char[]> buffer_;
    std::size_t begin_ = 0;  // of what was not handed out, the current line included
    std::size_t end_ = 0;    // of what was read
    char kept_ = '\0';       // what the terminator replaced
};

}  // namespace listreader

#endif
