#ifndef KATD_INIUTILS_H
#define KATD_INIUTILS_H

#include <cstdio>

namespace KATD_SPACE {

// One INI file, open for a few look-ups or changes; every look-up scans it from its start. Made for one
// reading pass: built on the stack, asked, let go. Owns the stream. For one thread; two objects on one file
// know nothing of each other. Nothing throws; failures are reported through the messages and the result.
//
// Lines are taken in pieces of at most 255 characters. Blanks are space, tab, carriage return and line feed.
//     [ section ]          a section ends at the next line that begins with "["; the first of a name counts
//     key = a value        ; comment
//     # comment            "#" and ";" also end a value, so a value holds neither
// Names are compared byte for byte. The first line of a key counts.
class IniUtils {
public:
    static constexpr int valueLimit = 256;  // characters of a value

    // Opens an existing file for reading and writing. A failure is reported and leaves `opened` false; a null
    // path leaves it false without a word.
    explicit IniUtils(const char* path);
    // The same with a mode of fopen(3), for example "r" for a program that may not write. Close-on-exec is
    // added.
    IniUtils(const char* path, const char* mode);
    // Closes the stream, which also writes out what ModifyConfValue left in it.
    ~IniUtils();
    IniUtils(const IniUtils&) = delete;
    IniUtils& operator=(const IniUtils&) = delete;

    // Looks up `key` in `section` (1 to 59 characters). 0: found, value holds its text, without blanks at its
    // ends, cut at `size` characters (1 to 256), possibly empty. -1: not found (no message) or bad arguments
    // (reported); value is as it was. REQUIRES: value has room for size + 1 bytes.
    int QueryConfValue(const char* section, const char* key, char* value, int size);

    // Sets `key` in `section`, adding the line at the section's end or the section at the file's end if need
    // be. A null value or comment is an empty one. All other bytes stay as they are; a file never gets
    // shorter, blanks fill its end instead. 0 when the stream has taken the text (a failing write is not
    // noticed), -1 with the file unchanged otherwise: file not open, not seekable or not readable, null names
    // (no message), bad length of the section's name or no memory (reported). REQUIRES: key, value and
    // comment hold no line feed.
    int ModifyConfValue(const char* section, const char* key, const char* value, const char* comment);

    bool opened;  // true exactly when `file` is open: tells a missing file from a missing key

private:
    std::FILE* file;  // null when the file could not be opened
};

}  // namespace KATD_SPACE

#endif
