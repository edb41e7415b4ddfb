#ifndef KATD_ITEMLINES_H
#define KATD_ITEMLINES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace KATD_SPACE {

// The lines of a list file behind the first one, read in blocks. Lines and their ends are those of fgets(3),
// so also for zero bytes, for what is longer than its room, and for a read error, with which the line under
// way is lost. For one thread; owns nothing. It reads ahead; in the end a stream that can be moved stands
// behind what was taken.
class ItemLines {
public:
    explicit ItemLines(std::FILE* from) : stream(from) {}
    ~ItemLines() { fseeko(stream, at - end, SEEK_CUR); }
    ItemLines(const ItemLines&) = delete;
    ItemLines& operator=(const ItemLines&) = delete;

    // Takes the four characters that a line begins with. False when there are not so many or the fourth is
    // no "|"; otherwise *category is the number of the first three.
    bool takeCategory(std::uint32_t* category);
    // Takes what is left of the line, up to room - 1 bytes, as a text at `to` without its trailing blanks.
    // Its length, or -1 when there is nothing to be had. REQUIRES: room >= 2.
    std::int32_t takeText(char* to, std::int32_t room);

private:
    bool refill();
    bool takePieces(char* to, std::size_t limit, std::size_t* length);

    std::FILE* stream;        // not owned
    const char* at = block;   // what is not taken yet: from here ...
    const char* end = block;  // ... to here
    bool hasZero = false;     // the block holds a zero byte
    bool isLast = false;      // nothing follows the block
    bool isFailed = false;    // because of a read error
    char block[1 << 16];
};

}  // namespace KATD_SPACE

#endif
