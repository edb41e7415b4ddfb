// A file read line by line.
#ifndef KATLIST_LINEFILE_H
#define KATLIST_LINEFILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace katlist {

// Owns the stream and the line. One thread. Throws Failure where the file cannot be opened or read.
class LineFile {
public:
    // "-" stands for standard input where `dash` says so.
    explicit LineFile(const std::string& path, bool dash = true);
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    // The next line into `text`, false at the end.
    bool next();

    const std::string name;  // as messages name it
    char* text = nullptr;  // the line with its line feed, ended by a zero byte; may be changed; until next()
    std::size_t length = 0;    // its bytes, zero bytes and the line feed included
    std::uint64_t number = 0;  // counted from 1

private:
    std::FILE* stream_;
    std::size_t room_ = 0;  // bytes of text
};

}  // namespace katlist

#endif
