// A file that is replaced as a whole or not at all.
#ifndef LISTREADER_OUTPUTFILE_H
#define LISTREADER_OUTPUTFILE_H

#include <sys/stat.h>

#include <cstdio>
#include <string>

namespace listreader {

// Written to a temporary file in the same folder, synced, and renamed. The temporary file is removed if the
// object is destroyed before commit(), or a signal ends the program (not SIGKILL). One object at a time, one
// thread. Throws Failure.
class OutputFile {
public:
    // A symbolic link at `path` is followed: its target is replaced. Refused are anything but a regular file,
    // and in a folder with the sticky bit, such as /tmp, links and files that another user has put there.
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
    // Puts the file in its place. It gets mode, owner and group of the file that it replaces, as far as the
    // system allows; a new one has mode 0644 less the umask. Prints a note if the owner cannot be kept, or if
    // a user "katd" exists who cannot read the file.
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
