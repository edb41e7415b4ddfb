// Paths and file system operations.
#ifndef QOR_IO_FILE_H
#define QOR_IO_FILE_H

#include <string>
#include <vector>

#include "Mutex.h"

namespace QOR_SPACE {

// A path, stored as given. It holds no descriptor, so each result is a snapshot. Not thread-safe. Failures
// are returned and leave errno as the failing call set it. Symbolic links are followed.
class File : public QorObject {
public:
    static constexpr char pathSeparatorChar = '/';
    static constexpr char pathSeparator[] = "/";

    explicit File(const std::string& filePath);
    // parent + "/" + child, without the "/" if the parent ends with one; only the child if the parent is
    // empty.
    File(const std::string& parent, const std::string& child);
    File(const File&) = default;
    File& operator=(const File&) = default;
    ~File() override;

    static std::string getSeparator();
    static std::string getDefaultTempDir();
    // Creates a new file "<directory>/<prefix>XXXXXX" (mkstemp(3), mode 0600). Stores its path in `name` and
    // returns a descriptor, which the caller closes; returns -1 on failure.
    static int createTempFile(const std::string& prefix, const std::string& directory, std::string& name);
    // The same in "/tmp".
    static int createTempFile(const std::string& prefix, std::string& name);

    const std::string& getPath() const { return path; }
    bool isAbsolute() const;
    // The part after the last "/", or the whole path.
    std::string getName() const;
    // The part before the last "/": "/" for "/a", empty for "/" and for a path without "/".
    std::string getParent() const;
    // The path, with the working directory and "/" in front if it is relative.
    std::string getAbsolutePath() const;
    // The absolute path without "." and ".." segments and doubled "/". The file system is not consulted:
    // symbolic links are not resolved. Throws OutOfMemoryException.
    std::string getCanonicalPath() const;
    // True if the path is `other`, byte for byte.
    bool compareTo(const std::string& other) const;

    bool exists() const;
    bool canRead() const;
    // Checks the file, not its directory.
    bool canWrite() const;
    // Both check only one mode bit: a socket counts as both, a block device as a directory.
    bool isFile() const;
    bool isDirectory() const;
    // True if the descriptor and the path have the same inode number; devices are not compared.
    bool isSame(int fd) const;
    // Readable, and without write permission for its owner.
    bool isReadOnly() const;
    // Removes all write permissions of a writable file.
    bool setReadOnly() const;
    // Stores the modification time in seconds since the epoch; `seconds` is unchanged on failure.
    bool lastModified(long& seconds) const;
    // Sets the modification time and keeps the access time; needs a writable file.
    bool setLastModified(long seconds) const;
    // Size in bytes, at most LONG_MAX; -1 if it is not a readable file.
    long length() const;
    // Creates an empty file of mode 0600 less the umask; false if it exists or cannot be created.
    bool createNewFile() const;
    // Removes a file or an empty directory.
    bool remove() const;
    // Renames a writable file, replacing newPath, and changes this path on success.
    bool renameTo(const std::string& newPath);
    // Creates the directory with mode 0777 less the umask; false if it exists.
    bool mkdir() const;
    // Creates the directory and its missing parents; true also if the path exists, whatever it is.
    bool mkdirs() const;
    // Appends the names in the directory, unsorted, without "." and "..". Appends nothing if it is not a
    // directory or cannot be opened. Throws OutOfMemoryException, with `names` unchanged.
    void list(std::vector<std::string>& names) const;
    // Removes a file, or a directory and its contents; stops and returns false at the first failure. Enters a
    // symbolic link to a directory. Throws as list().
    bool removeAll() const;

private:
    std::string path;  // as given
};

}  // namespace QOR_SPACE

#endif
