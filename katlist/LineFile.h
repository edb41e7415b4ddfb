// A file read line by line.
#ifndef KATLIST_LINEFILE_H
#define KATLIST_LINEFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace katlist {

// Owns the stream and the lines. One thread. Throws Failure where the file cannot be opened or read.
class LineFile {
public:
    // What may be read: anything, "-" being standard input; or a list file, which is read more than once and
    // so must be a regular file. Nothing else is opened then: a pipe would wait, and give its lines but once.
    enum class Source { input, listFile };
    explicit LineFile(const std::string& path, Source source = Source::input);
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    // The next line into `text`, false at the end.
    bool next();
    // The line behind that one, null at the end; until the next call of either.
    const char* peek();

    const std::string name;  // as messages name it
    char* text = nullptr;  // the line with its line feed, ended by a zero byte; may be changed; until next()
    std::size_t length = 0;    // its bytes, zero bytes and the line feed included
    std::uint64_t number = 0;  // counted from 1

private:
    bool read(char** line, std::size_t* room, std::size_t* bytes);

    std::FILE* stream_;
    std::size_t room_ = 0;         // bytes of text
    bool isAheadRead_ = false;     // by peek(): the next line is in ahead_
    char* ahead_ = nullptr;        // like text
    std::size_t aheadRoom_ = 0;    // bytes of ahead_
    std::size_t aheadLength_ = 0;  // its bytes, 0 at the end
};

}  // namespace katlist

#endif
