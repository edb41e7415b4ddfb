// A file that is replaced as a whole or not at all.
#ifndef LISTREADER_OUTPUTFILE_H
#define LISTREADER_OUTPUTFILE_H

#include <sys/stat.h>

#include <cstdio>
#include <string>

namespace listreader {

// Writes to a temporary file in the same folder; commit() syncs and renames it. The temporary file is removed
// if the object is destroyed before commit() or a signal other than SIGKILL ends the program. Not
// thread-safe, and only one object may exist at a time. Throws Failure.
class OutputFile {
public:
    // Follows a symbolic link at `path` and replaces its target. Refuses a file that is not regular, and in a
    // folder with the sticky bit, such as /tmp, links and files of other users.
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const char* text, std::size_t length);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // The path of the temporary file, for writers that open it themselves.
    const std::string& temporaryPath() const { return beside_; }
    // True if there is a file to be replaced.
    bool replaces() const { return replaces_; }
    // Replaces the old file and keeps its mode, owner and group as far as the system allows. A new file has
    // mode 0644 less the umask. Prints a note if the owner cannot be kept, or if a user "katd" exists who
    // cannot read the file.
    void commit();

private:
    void resolve();
    void setAttributes();
    [[noreturn]] void fail(const char* what) const;

    std::string path_;
    std::string beside_;  // the temporary file until commit()
    std::FILE* stream_ = nullptr;
    bool replaces_ = false;
    struct stat replaced_ {};  // of the file there, if replaces_
};

}  // namespace listreader

#endif
