// A file that is there whole or not at all.
#ifndef KATLIST_OUTPUTFILE_H
#define KATLIST_OUTPUTFILE_H

#include <cstdio>
#include <string>

namespace katlist {

// Written beside its place under a name of its own, synced, and renamed. Removed again when the object goes
// before commit(), or a signal that people send ends the program. One object at a time. Throws Failure.
class OutputFile {
public:
    // A link at `path` is followed: what it points to is replaced. Anything else than a regular file is
    // refused.
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const char* text, std::size_t length);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Puts it in its place, with mode 0644 as far as the file-creation mask allows.
    void commit();

private:
    [[noreturn]] void fail(const char* what) const;

    std::string path_;
    std::string beside_;  // name until commit()
    std::FILE* stream_ = nullptr;
};

}  // namespace katlist

#endif
