// Logs to a stream, to a file, to a file that is rotated by size; the process-wide logs.
#ifndef QOR_UTIL_LOG_H
#define QOR_UTIL_LOG_H

#include <atomic>
#include <cstdint>
#include <string>

#include "Mutex.h"
#include "NameValuePairs.h"
#include "io/OutputStream.h"

namespace QOR_SPACE {

// A structured record.
class LogEntry : public NameValuePairs {};

// Formats records and writes each to a stream in one call. Base of the logs; its static members are the
// process-wide settings and logs. The settings may be changed while other threads log. A plain Log is not
// thread-safe.
class Log {
public:
    // Level of a record, shown in its line. Any other value counts as INFO.
    enum LogLevel : std::int32_t { INFO = 0, WARNING = 1, ERROR = 2, DEBUG = 3 };

    static constexpr char endOfLine[] = "\n";
    static constexpr char endOfRecord[] = "==\n";
    static constexpr char fieldSeparator[] = "\t";
    static constexpr char fieldSeparatorChar = '\t';

    // Number of rotated files that are kept.
    static std::atomic<std::int32_t> _extensionLimits;

    // Switch all logs of the process on and off.
    static void enableLog();
    static void disableLog();
    // The process's level. It filters nothing; it only decides what warningLog() returns.
    static void setLogLevel(const LogLevel& level);
    static LogLevel getLogLevel();
    // Size in KiB at which logs are rotated; 0 disables rotation, more than 2097151 counts as 2097151.
    static void setRotationSize(unsigned long size);
    static unsigned long getRotationSize();
    // Sets _extensionLimits; values below 1 are ignored.
    static void setExtensionLimits(int limit);

    // The debug log if it is enabled, otherwise a log that drops all records. Never null.
    static Log* debugLog();
    static void setDebugLogEnabled(bool on);
    // The debug log, enabled or not.
    static Log* errLog();
    static Log* infoLog();
    // The debug log if the process's level is WARNING, otherwise a log that drops all records.
    static Log* warningLog();
    // RotationFileLog::setPath and a copy of getPath of the debug log and the system log, which write to
    // standard error until a path is set.
    static bool setDebugLogPath(const char* path);
    static std::string getDebugLogPath();
    static bool setSysLogPath(const char* path);
    static std::string getSysLogPath();
    // RotationFileLog::reqRotation of the system log.
    static int sysLogRotation();

    // The stream must outlive the log; null drops all records.
    explicit Log(OutputStream* outputStream);
    virtual ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    // Writes one record, the text with a line feed at its end, between beforeWrite() and afterWrite(). An
    // Exception (a failed write, no memory to reopen the file) is caught and reported on standard error; any
    // other exception, such as std::bad_alloc, is thrown on after afterWrite().
    virtual void write(const std::string& text);
    // Writes the entry as formatted by format().
    virtual void write(const LogEntry& entry);
    // Writes the text; the level is ignored here.
    virtual void write(const std::string& text, Log::LogLevel level);
    virtual void clear();
    virtual void deleteBySize(unsigned long size);
    // Appends "name=value" lines and an end-of-record line to `out`.
    virtual void format(const LogEntry& entry, std::string& out);
    // Called around every record, afterWrite() also after a failed write, but not after a beforeWrite() that
    // threw.
    virtual void beforeWrite();
    virtual void afterWrite();

protected:
    OutputStream* stream;      // null: records are dropped. Not owned here.
    bool writeFailed = false;  // the last write to the stream failed: the file may end inside a line
};

// Appends to a file, or writes to a given stream until it has a path. Lines start with the local date and
// time. Has no lock: each record is one write in append mode, but setPath, close and clear must not run
// beside another call.
class FileLog : public Log {
public:
    // Writes to `outputStream` until a path is set.
    explicit FileLog(OutputStream* outputStream);
    // Opens `logPath`; if that fails, records are dropped until setPath() succeeds.
    explicit FileLog(const char* logPath);
    // Closes the file.
    ~FileLog() override;

    // "DATE TIME<tab>text".
    void write(const std::string& text) override;
    // "DATE TIME<tab>value<tab>value...".
    void write(const LogEntry& entry) override;
    // "DATE TIME<tab>level<tab>text".
    void write(const std::string& text, Log::LogLevel level) override;
    // Removes the file and opens a new one.
    void clear() override;
    // Appends the values, with blanks for the tabs in them, separated by tabs, and a line feed.
    void format(const LogEntry& entry, std::string& out) override;

    // Writes to the file at `newPath` from now on, created with mode 0666 less the umask. The open file is
    // kept if the path still names it. Returns true if the log now writes to the file. Returns false for null
    // (nothing changes),
    // "" (records go to standard error), and if the file is a FIFO or cannot be opened (a log that had a file
    // drops records until setPath() succeeds). Throws OutOfMemoryException.
    virtual bool setPath(const char* newPath);
    // The last path set, or "".
    virtual std::string& getPath();
    // Closes the file; records are dropped until the next setPath(). Does nothing with a given stream. Never
    // throws.
    void close();

protected:
    std::string path;  // changed only by setPath with another path
    std::int32_t fd;   // of the file last opened, -1 if that failed
    bool ownStream;    // the log opened `stream` and deletes it
};

// A file log for several threads and processes. It moves its file aside when that has reached the rotation
// size (Log::setRotationSize), and keeps Log::_extensionLimits old files:
//
//     P  ->  P.0  ->  P.1  ->  P.2  ->  ...  ->  P.N  ->  removed
//     \__________/   \_________________________________/
//      first stage     second stage (under the rotation
//      (write pair)     pair; writers continue)
//
// A pair is a Mutex for the threads and a record lock on a file in /tmp for the processes. The file's name
// derives from the last component of P only. The mutex is taken first and released last, since the record
// lock belongs to the process. A thread never holds both pairs. Two logs of one process with the same file
// name share their lock files, and each would release the other's record lock: give them different names.
//
// write() is thread-safe; setPath, clear and deleteBySize must not run while another thread writes.
class RotationFileLog : public FileLog {
public:
    explicit RotationFileLog(OutputStream* outputStream);
    ~RotationFileLog() override;

    void write(const std::string& text) override;
    void write(const LogEntry& entry) override;
    void write(const std::string& text, Log::LogLevel level) override;
    // Closes the log and removes all files in its directory whose names start with the log's file name. The
    // next record opens a new file.
    void clear() override;
    // Removes the rotated files beyond those that fit in `size` KiB, up to the first gap. Does nothing if
    // rotation is disabled.
    void deleteBySize(unsigned long size) override;
    // Takes the write pair, rotates if due, and reopens the file if it was moved away. After a failed write
    // it ends an incomplete line. Releases the pair if it throws.
    void beforeWrite() override;
    // Closes the file near the rotation size and releases the write pair, even if it throws.
    void afterWrite() override;
    // As FileLog::setPath; on success it also creates missing lock files and opens those that are not open.
    bool setPath(const char* newPath) override;

    // The name to which `name` moves: its number plus one, at most the limit. If the limit is exceeded,
    // removes the file with the limit as its number. Returns a name without a number unchanged.
    virtual std::string nextFile(const std::string& name);

    // Renames `name` and its successors, up to the first gap, to their next names, the last one first. No
    // file is replaced. Returns 0 if `name` itself was renamed, otherwise -1. The first failure that stops
    // rotation, such as a file without write permission, is reported on standard error. REQUIRES: the
    // rotation pair is held.
    int renameFiles(std::string name);
    // Second stage: renames P.0 and its successors. Returns 0 if there was nothing to do, -1 after an
    // IOException, otherwise as renameFiles. REQUIRES: no pair is held.
    int makerotate();
    // Both stages, if the file is larger than the rotation size (rotateFiles) or in any case (frotateFiles).
    // The write pair is released during the second stage. An existing P.0 is renamed first; if that fails,
    // the file stays and keeps growing. Returns as makerotate(). REQUIRES: the write pair is held.
    int rotateFiles();
    int frotateFiles();
    // Rotates whatever the size. Returns 0 if the file is empty or missing, otherwise as frotateFiles().
    // REQUIRES: no pair is held.
    int reqRotation();

protected:
    FileLock writeLock;   // between processes; opened once
    FileLock rotateLock;  // likewise
    Mutex writeMutex;     // guards stream, path, fd, ownStream, writeFailed and writeLock
    Mutex rotateMutex;    // guards rotateLock, moveFailureReported and the numbered files

private:
    int rotate(bool forced);
    bool moveAside(bool forced);

    bool moveFailureReported = false;
};

// The class of the process-wide debug log: a RotationFileLog with a switch.
class DebugLog : public RotationFileLog {
public:
    explicit DebugLog(OutputStream* outputStream);
    ~DebugLog() override;

    void beforeWrite() override;
    void afterWrite() override;
    std::string nextFile(const std::string& name) override;

private:
    friend class Log;

    std::atomic<bool> enabled;  // Log::debugLog() returns this log
};

}  // namespace QOR_SPACE

#endif
