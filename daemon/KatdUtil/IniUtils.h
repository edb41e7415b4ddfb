#ifndef KATD_INIUTILS_H
#define KATD_INIUTILS_H

#include <cstdio>

namespace KATD_SPACE {

// Looks up and changes single keys of an open INI file; every look-up scans the file from its start. Meant
// for a short lifetime on the stack. Not thread-safe; two objects on one file are not coordinated. Nothing
// throws; failures are reported by messages and results.
//
// Lines are read in pieces of at most 255 characters. Blanks are space, tab, carriage return and line feed.
//     [ section ]          ends at the next line that starts with "["; only the first section of a name is
//     read key = a value        ; comment # comment            "#" and ";" also end a value
// Names are case-sensitive. The first line of a key counts.
class IniUtils {
public:
    static constexpr int valueLimit = 256;  // maximum length of a value

    // Opens an existing file for reading and writing. Leaves `opened` false on failure, which is reported,
    // and for a null path, which is not.
    explicit IniUtils(const char* path);
    // The same with a mode of fopen(3), such as "r" for a program without write permission. Adds
    // close-on-exec.
    IniUtils(const char* path, const char* mode);
    // Closes the stream, which flushes the changes of ModifyConfValue.
    ~IniUtils();
    IniUtils(const IniUtils&) = delete;
    IniUtils& operator=(const IniUtils&) = delete;

    // Looks up `key` in `section` (1 to 59 characters). Returns 0 and copies its value, without leading and
    // trailing blanks and cut at `size` characters (1 to 256); it may be empty. Returns -1 if it was not
    // found (no message) or for bad arguments (reported); then value is unchanged. REQUIRES: value points to
    // size + 1 bytes.
    int QueryConfValue(const char* section, const char* key, char* value, int size);

    // Sets `key` in `section`; if necessary, adds the key at the end of the section or the section at the end
    // of the file. A null value or comment counts as "". All other bytes are unchanged. The file never
    // becomes shorter: it is padded with blanks. Returns 0 when the text was passed to the stream (a failed
    // write is not detected). Returns -1, with the file unchanged, if it is not open, seekable and readable
    // or a name is null (no message), or for a bad length of the section's name or lack of memory (reported).
    // REQUIRES: key, value and comment contain no line feed.
    int ModifyConfValue(const char* section, const char* key, const char* value, const char* comment);

    bool opened;  // `file` is open: distinguishes a missing file from a missing key

private:
    std::FILE* file;  // null if the file could not be opened
};

}  // namespace KATD_SPACE

#endif
