// Byte output streams.
#ifndef QOR_IO_OUTPUTSTREAM_H
#define QOR_IO_OUTPUTSTREAM_H

#include <cstdint>
#include <memory>
#include <string>

#include "Mutex.h"

namespace QOR_SPACE {

// Base of the streams: open from construction until close(). Takes no lock: one stream, one thread at a
// time. Every write returns the count of bytes taken and throws IOException on failure; lengths are in bytes
// and not negative.
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
    // Writes the text without its NUL through write(data, length).
    virtual int write(const char* text);
    // Throws IOException "Unimplemented".
    virtual int write(const char* data, int length);

protected:
    bool closed = false;  // set by close()
};

// Writes straight to a descriptor, which it owns; no buffer in between. With a descriptor in append mode
// concurrent writes from several streams or processes land whole.
class FileOutputStream : public OutputStream {
public:
    // What the file is opened for; any other number writes from the start of an existing file.
    enum Mode {
        TRUNCATE = 0,         // create it, or empty it
        APPEND_EXISTING = 1,  // append; a missing file is an error
        APPEND = 2            // append, created when missing
    };

    // Adopts an open descriptor; it is not examined.
    explicit FileOutputStream(int descriptor);
    // Opens `path` (see Mode), creation mode 0666 less the umask. Throws IOException "<path>: <reason>".
    FileOutputStream(const char* path, int mode);
    // Closes; a failure stays here.
    ~FileOutputStream() override;

    // Closes the descriptor, but leaves 1 and 2 open for the process. Harmless when closed. Throws
    // IOException when close(2) fails; the stream is closed all the same.
    void close() override;
    using OutputStream::write;
    // One write(2) call, never repeated. Throws IOException for a closed stream, an error and a short count;
    // the stream stays open, and part of the data may have been written.
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    std::int32_t fd;  // -1 once closed, except 1 and 2
};

// Collects what is written. Keeps accepting writes after close(); throws nothing of its own.
class StringOutputStream : public OutputStream {
public:
    // Reserves room for initialSize bytes.
    explicit StringOutputStream(int initialSize);
    ~StringOutputStream() override;

    // The collected bytes, as long as the stream lives.
    std::string& getString() { return buffer; }
    // Discards what was collected and frees its memory.
    void close() override;
    void flush() override;
    using OutputStream::write;
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    std::string buffer;  // collected bytes
};

// Forwards to another stream, which it neither owns nor closes and which must outlive it.
class FilterOutputStream : public OutputStream {
public:
    explicit FilterOutputStream(OutputStream& target);
    ~FilterOutputStream() override;

    // Marks this stream closed; writes are forwarded all the same.
    void close() override;
    void flush() override;
    using OutputStream::write;
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    OutputStream* out;  // not owned, not null
};

// Collects up to `size` bytes before they go to the target in one write. Passes on the target's exceptions;
// what could not be written stays in the buffer.
class BufferedOutputStream : public FilterOutputStream {
public:
    // A buffer of bufferSize bytes; a size below 1 counts as 1.
    BufferedOutputStream(OutputStream& target, int bufferSize);
    // Flushes and closes; a failure stays here.
    ~BufferedOutputStream() override;

    // Flushes, then closes this stream, not the target. Stays open when the flush throws.
    void close() override;
    // Hands the collected bytes to the target (whose flush() is not called). Throws when closed.
    void flush() override;
    using OutputStream::write;
    // Throw IOException "Stream is already closed" after close(). A write of at least `size` bytes into an
    // empty buffer goes to the target in one call.
    int write(char c) override;
    int write(const char* data, int length) override;

protected:
    std::unique_ptr<char[]> buf;  // null once closed
    std::int32_t count;           // bytes waiting in buf
    std::int32_t size;            // capacity of buf, at least 1
};

}  // namespace QOR_SPACE

#endif
