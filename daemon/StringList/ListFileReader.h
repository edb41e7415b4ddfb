#ifndef KATD_LISTFILEREADER_H
#define KATD_LISTFILEREADER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace KATD_SPACE {

// Reads the item lines of a list file in blocks. Lines are those of fgets(3), also with NUL bytes, with lines
// longer than the buffer, and with a read error, which loses the current line. Not thread-safe. It reads
// ahead; the destructor moves a seekable stream back to the end of what was taken.
class ListFileReader {
public:
    explicit ListFileReader(std::FILE* from) : stream(from) {}
    ~ListFileReader() { fseeko(stream, at - end, SEEK_CUR); }
    ListFileReader(const ListFileReader&) = delete;
    ListFileReader& operator=(const ListFileReader&) = delete;

    // Takes the first four characters of a line. Returns false if the line has fewer or the fourth is not
    // "|"; otherwise *category is the number in the first three.
    bool takeCategory(std::uint32_t* category);
    // Copies the rest of the line, at most size - 1 bytes, to `to` as a string without trailing blanks.
    // Returns its length, or -1 if nothing could be read. REQUIRES: size >= 2.
    std::int32_t takeText(char* to, std::int32_t size);

private:
    bool refill();
    bool takePieces(char* to, std::size_t limit, std::size_t* length);

    std::FILE* stream;        // not owned
    const char* at = block;   // next byte of the block
    const char* end = block;  // end of the data in the block
    bool hasNul = false;      // the block holds a NUL byte
    bool isLast = false;      // the block is the last one,
    bool isFailed = false;    // because of a read error
    char block[1 << 16];
};

}  // namespace KATD_SPACE

#endif
