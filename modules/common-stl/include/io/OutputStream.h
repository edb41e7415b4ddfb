// Byte output streams.
#ifndef QOR_IO_OUTPUTSTREAM_H
#define QOR_IO_OUTPUTSTREAM_H

#include <cstdint>
#include <memory>
#include <string>

#include "Mutex.h"

namespace QOR_SPACE {

// Base of the streams, open from construction to close(). Not thread-safe. Every write returns the number of
// bytes written and throws IOException on failure; lengths are in bytes and not negative.
class OutputStream : public QorObject {
public:
    OutputStream() = default;
    ~OutputStream() override;
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    // Throws IOException "Unimplemented".
    virtual void close();
    virtual void flush();
    // Throws IOException "Unimplemented".
    virtual int write(char c);
    // Writes a NUL-terminated string by write(data, length).
    virtual int write(const char* text);
    // Throws IOException "Unimplemented".
    virtual int write(const char* data, int length);

protected:
    bool closed = false;  // set by close()
};

// Writes to a descriptor, which it owns, without a buffer. In append mode, writes of several streams or
// processes do not mix.
class FileOutputStream : public OutputStream {
public:
    // Any other number writes from the start of an existing file.
    enum Mode {
        TRUNCATE = 0,         // create or truncate
        APPEND_EXISTING = 1,  // append; a missing file is an error
        APPEND = 2            // create or append
    };

    // Takes ownership of the descriptor, which is not checked.
    explicit FileOutputStream(int descriptor);
    // Opens `path`, created with mode 0666 less the umask. Throws IOException "<path>: <reason>".
    FileOutputStream(const char* path, int mode);
    // Closes, ignoring a failure.
    ~FileOutputStream() override;

    // Closes the descriptor, unless it is 1 or 2. Does nothing if already closed. Throws IOException if
    // close(2) fails; the stream is closed all the same.
    void close() override;
    using OutputStream::write;
    // One write(2) call. Throws IOException for a closed stream, an error or a short write; the stream stays
    // open, and part of the data may have been written.
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    std::int32_t fd;  // -1 after close(), except 1 and 2
};

// Collects the data in a string. Accepts writes after close(), too.
class StringOutputStream : public OutputStream {
public:
    // Reserves initialSize bytes.
    explicit StringOutputStream(int initialSize);
    ~StringOutputStream() override;

    // The collected data, valid as long as the stream.
    std::string& getString() { return buffer; }
    // Discards the data and frees its memory.
    void close() override;
    void flush() override;
    using OutputStream::write;
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    std::string buffer;
};

// Forwards to another stream, which must outlive it and which it does not close.
class FilterOutputStream : public OutputStream {
public:
    explicit FilterOutputStream(OutputStream& target);
    ~FilterOutputStream() override;

    // Marks this stream as closed; writes are still forwarded.
    void close() override;
    void flush() override;
    using OutputStream::write;
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    OutputStream* out;  // not owned, not null
};

// Collects up to `size` bytes and writes them to the target in one call. If that throws, the data stays in
// the buffer.
class BufferedOutputStream : public FilterOutputStream {
public:
    // A bufferSize below 1 counts as 1.
    BufferedOutputStream(OutputStream& target, int bufferSize);
    // Flushes and closes, ignoring a failure.
    ~BufferedOutputStream() override;

    // Flushes, then closes this stream, not the target. Stays open if the flush throws.
    void close() override;
    // Writes the buffer to the target, whose flush() is not called. Throws if closed.
    void flush() override;
    using OutputStream::write;
    // A write of at least `size` bytes into an empty buffer goes to the target in one call. Throws
    // IOException "Stream is already closed" after close().
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    std::unique_ptr<char[]> buf;  // null after close()
    std::int32_t count;           // bytes in buf
    std::int32_t size;            // capacity of buf, at least 1
};

}  // namespace QOR_SPACE

#endif
