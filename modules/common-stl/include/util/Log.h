// Logs: to a stream, to a file, to a file that rotates by size; and the logs of the process.
#ifndef QOR_UTIL_LOG_H
#define QOR_UTIL_LOG_H

#include <atomic>
#include <cstdint>
#include <string>

#include "Mutex.h"
#include "NameValuePairs.h"
#include "io/OutputStream.h"

namespace QOR_SPACE {

// A structured record: named values in order.
class LogEntry : public NameValuePairs {};

// Turns a record into text and hands it, in one piece, to a stream. The root of the logs; it also holds the
// switches and the logs of the process. The switches are read without a lock: set them during start-up. A
// plain Log takes no lock.
class Log {
public:
    // Level of a record: the word in its line. Any value may come; others than these are "info".
    enum LogLevel : std::int32_t { INFO = 0, WARNING = 1, ERROR = 2, DEBUG = 3 };

    static constexpr char endOfLine[] = "\n";
    static constexpr char endOfRecord[] = "==\n";
    static constexpr char fieldSeparator[] = "\t";
    static constexpr char fieldSeparatorChar = '\t';

    // Highest number of a rotated file: so many of them are kept.
    static std::atomic<std::int32_t> _extensionLimits;

    // The master switch of all logs of the process.
    static void enableLog();
    static void disableLog();
    // The level of the process. No filter: it only decides what warningLog() returns.
    static void setLogLevel(const LogLevel& level);
    static LogLevel getLogLevel();
    // Size in KiB from which rotating logs rotate; 0 turns rotation off, more than 2097151 counts as
    // 2097151.
    static void setRotationSize(unsigned long size);
    static unsigned long getRotationSize();
    // Sets _extensionLimits; a limit below 1 is ignored.
    static void setExtensionLimits(int limit);

    // The debug log while it is enabled, otherwise a log that drops everything. Never null.
    static Log* debugLog();
    static void setDebugLogEnabled(bool on);
    // The debug log, enabled or not.
    static Log* errLog();
    static Log* infoLog();
    // The debug log while the level of the process is WARNING, otherwise a log that drops everything.
    static Log* warningLog();
    // RotationFileLog::setPath and a copy of getPath on the debug log and the system log. Until a path is set
    // they write to standard error.
    static bool setDebugLogPath(const char* path);
    static std::string getDebugLogPath();
    static bool setSysLogPath(const char* path);
    static std::string getSysLogPath();
    // RotationFileLog::reqRotation on the system log.
    static int sysLogRotation();

    // `outputStream` may be null (records are dropped); it is not owned and must outlive the log.
    explicit Log(OutputStream* outputStream);
    virtual ~Log();
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    // Writes one record: the text with a line feed at its end, between beforeWrite() and afterWrite(). A
    // failure of the library (Exception: a failing write, no memory to reopen the file) is reported on
    // standard error and does not leave; anything else, such as std::bad_alloc, leaves after afterWrite().
    virtual void write(const std::string& text);
    // Writes the entry as format() renders it.
    virtual void write(const LogEntry& entry);
    // Writes the text; the level is ignored here.
    virtual void write(const std::string& text, Log::LogLevel level);
    virtual void clear();
    virtual void deleteBySize(unsigned long size);
    // Appends "name=value" lines and an end-of-record line to `out`.
    virtual void format(const LogEntry& entry, std::string& out);
    // Called around every record, afterWrite() also after a failed write. One that throws must leave
    // nothing held: afterWrite() is not called after a beforeWrite() that threw.
    virtual void beforeWrite();
    virtual void afterWrite();

protected:
    OutputStream* stream;      // where records go; null: nowhere. Owned by whoever supplied it.
    bool writeFailed = false;  // the last write to the stream failed: the file may end inside a line
};

// A log that appends to a file named by a path, or writes to a stream it was given until it has a path. Lines
// start with the local date and time. Takes no lock: each record is one write in append mode, but setPath,
// close and clear need the log to themselves.
class FileLog : public Log {
public:
    // Writes to `outputStream` until a path is set.
    explicit FileLog(OutputStream* outputStream);
    // Opens `logPath`; when that fails records are dropped until a setPath() works.
    explicit FileLog(const char* logPath);
    // Closes the file.
    ~FileLog() override;

    // "DATE TIME<tab>text".
    void write(const std::string& text) override;
    // "DATE TIME<tab>value<tab>value...".
    void write(const LogEntry& entry) override;
    // "DATE TIME<tab>level<tab>text".
    void write(const std::string& text, Log::LogLevel level) override;
    // Empties the log: removes the file and opens a new one.
    void clear() override;
    // Appends the values, tabs in them turned into blanks, separated by tabs, and a line feed.
    void format(const LogEntry& entry, std::string& out) override;

    // Writes to the file at `newPath` from now on, created with mode 0666 less the umask. Keeps the open file
    // if the path still names it, and opens a new one if it was moved away. True when the log now writes to
    // the file. False: null (nothing changes), empty (records go to standard error), or the file is a FIFO or
    // cannot be opened (a log with a file of its own drops records until a setPath() works). Throws
    // OutOfMemoryException.
    virtual bool setPath(const char* newPath);
    // The path last given, empty before.
    virtual std::string& getPath();
    // Closes the file the log opened, so that records are dropped until the next setPath(); does nothing to a
    // stream it was given. Never throws.
    void close();

protected:
    std::string path;  // changed only by setPath with another path
    std::int32_t fd;   // descriptor of the open file, -1 when it could not be opened
    bool ownStream;    // stream was opened here and is closed and deleted here
};

// A file log of several threads and processes that moves its file aside when it has reached the rotation
// size (Log::setRotationSize), and keeps Log::_extensionLimits old files:
//
//     P  ->  P.0  ->  P.1  ->  P.2  ->  ...  ->  P.N  ->  removed
//     \__________/   \_________________________________/
//      first stage     second stage (under the rotation
//      (write pair)     pair; writers go on meanwhile)
//
// Each pair is a Mutex for the threads and a record lock on a file below /tmp for the processes, named by the
// last component of P alone. The mutex is taken first and released last, since the record lock belongs to the
// whole process. One thread never waits for one pair while it holds the other. Two logs of one process whose
// files have the same name share their lock files and so do not keep other processes away from each other:
// give them other names.
//
// Writing is for any thread; setPath, clear and deleteBySize are for times when nobody writes.
class RotationFileLog : public FileLog {
public:
    explicit RotationFileLog(OutputStream* outputStream);
    ~RotationFileLog() override;

    void write(const std::string& text) override;
    void write(const LogEntry& entry) override;
    void write(const std::string& text, Log::LogLevel level) override;
    // Closes the log and removes every file in its folder whose name begins with the log's file name. The
    // next record opens a new file.
    void clear() override;
    // Removes the unbroken run of rotated files beyond those that `size` KiB can hold. Nothing while rotation
    // is off.
    void deleteBySize(unsigned long size) override;
    // Takes the write pair, rotates when due, follows the path. After a failed write it ends the incomplete
    // line in the file, if there is one. Holds nothing when it throws.
    void beforeWrite() override;
    // Closes the file when it is near the rotation size and releases the write pair, also when it throws.
    void afterWrite() override;
    // As FileLog::setPath; on success it also creates missing lock files and opens those not open yet.
    bool setPath(const char* newPath) override;

    // The name that `name` moves to when files shift: its number plus one; beyond the limit, the name with
    // the limit as its number, whose file is removed. A name without a number is returned unchanged.
    virtual std::string nextFile(const std::string& name);

    // Shifts `name` and the unbroken run of its successors by one, from the far end. 0 when `name` itself was
    // moved, else -1. Nothing is moved onto a file that is still there. The first file that cannot be moved
    // (not writable, for instance), which stops rotation, is reported on standard error. The rotation pair is
    // held.
    int renameFiles(std::string name);
    // Second stage: shifts P.0 and its successors. 0 when there was nothing to do, else as renameFiles; -1
    // after an IOException. No pair is held by the caller.
    int makerotate();
    // A whole rotation, when the file is larger than the rotation size, or whatever its size. Called and left
    // with the write pair held, which is released for the second stage. An existing P.0 is never replaced: it
    // is shifted first, and if that fails the file stays as it is and keeps growing. As makerotate(); -1
    // after an IOException.
    int rotateFiles();
    int frotateFiles();
    // Forces a rotation. 0 when the file is empty or missing, else as frotateFiles(). No pair is held.
    int reqRotation();

protected:
    FileLock writeLock;   // processes; opened once, under both mutexes or before the first record
    FileLock rotateLock;  // processes; likewise
    Mutex writeMutex;     // threads; guards stream, path, fd, ownStream and writeLock
    Mutex rotateMutex;    // threads; guards rotateLock and the numbered files

private:
    int rotate(bool forced);
    bool moveAside(bool forced);

    bool moveFailureReported = false;  // guarded by the rotation pair
};

// The class of the debug log of the process: a RotationFileLog with a switch.
class DebugLog : public RotationFileLog {
public:
    explicit DebugLog(OutputStream* outputStream);
    ~DebugLog() override;

    void beforeWrite() override;
    void afterWrite() override;
    std::string nextFile(const std::string& name) override;

private:
    friend class Log;

    std::atomic<bool> enabled;  // Log::debugLog() hands this log out
};

}  // namespace QOR_SPACE

#endif
