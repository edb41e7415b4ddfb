// Paths and what can be asked of and done to the files they name.
#ifndef QOR_IO_FILE_H
#define QOR_IO_FILE_H

#include <string>
#include <vector>

#include "Mutex.h"

namespace QOR_SPACE {

// A path, kept as given. A value: it holds no descriptor and touches the file system only inside a call, so
// each answer is a snapshot. One object, one thread. Failures are told by result only and leave errno as
// the failing call set it; symbolic links are followed except where a call says otherwise.
class File : public QorObject {
public:
    static constexpr char pathSeparatorChar = '/';
    static constexpr char pathSeparator[] = "/";

    explicit File(const std::string& filePath);
    // parent + "/" + child, without the "/" where the parent ends with one; just the child for an empty
    // parent. A leading "/" of the child stays.
    File(const std::string& parent, const std::string& child);
    File(const File&) = default;
    File& operator=(const File&) = default;
    ~File() override;

    static std::string getSeparator();
    static std::string getDefaultTempDir();
    // Creates a new file "<directory>/<prefix>XXXXXX" (mkstemp(3), mode 0600) and returns its descriptor,
    // which the caller closes, and its path in `name`. On failure -1, and `name` unchanged.
    static int createTempFile(const std::string& prefix, const std::string& directory, std::string& name);
    // The same in "/tmp".
    static int createTempFile(const std::string& prefix, std::string& name);

    const std::string& getPath() const { return path; }
    bool isAbsolute() const;
    // What follows the last "/": the whole path without one, empty for a path that ends with one.
    std::string getName() const;
    // What precedes the last "/": "/" for "/a", empty for "/" and for a path without one.
    std::string getParent() const;
    // The path, or the working directory, "/" and the path when it is relative.
    std::string getAbsolutePath() const;
    // The absolute path without "." and ".." segments and doubled "/", by arithmetic alone: links are not
    // looked at. Throws OutOfMemoryException.
    std::string getCanonicalPath() const;
    // Equality, not order: true if the path is `other`, byte for byte.
    bool compareTo(const std::string& other) const;

    bool exists() const;
    bool canRead() const;
    // Asks for the file itself, not its folder.
    bool canWrite() const;
    // These two look at one mode bit each: a socket is both, a block device is a directory.
    bool isFile() const;
    bool isDirectory() const;
    // True if the descriptor and the path have the same inode number; devices are not compared.
    bool isSame(int fd) const;
    // Readable, and not writable for its owner.
    bool isReadOnly() const;
    // Takes the write permission from everybody; needs a file that is writable now.
    bool setReadOnly() const;
    // Modification time in seconds since the epoch; `seconds` is unchanged on failure.
    bool lastModified(long& seconds) const;
    // Sets the modification time and keeps the access time; needs a writable file.
    bool setLastModified(long seconds) const;
    // Size in bytes, at most LONG_MAX; -1 for what is not a readable file.
    long length() const;
    // Creates an empty file of mode 0600 less the umask; false if it exists or cannot be created.
    bool createNewFile() const;
    // Unlinks a file, removes an empty directory.
    bool remove() const;
    // Renames the file and, on success, this path; needs a writable file. An existing newPath is replaced.
    bool renameTo(const std::string& newPath);
    // Creates the directory with mode 0777 less the umask; false if it exists.
    bool mkdir() const;
    // Creates the directory and its missing parents; true if the path exists, as whatever.
    bool mkdirs() const;
    // Appends the names in the directory, unsorted, without "." and ".."; appends none when it is not a
    // directory or cannot be opened. Throws OutOfMemoryException, with `names` unchanged.
    void list(std::vector<std::string>& names) const;
    // Removes a file, or a directory with all that is in it; ends at the first failure with false. A link to
    // a directory is entered. Throws as list().
    bool removeAll() const;

private:
    std::string path;  // as given
};

}  // namespace QOR_SPACE

#endif
