// What the library throws, always by value.
#ifndef QOR_EXCEPTION_H
#define QOR_EXCEPTION_H

#include <cstdint>
#include <string>

#include "Mutex.h"

namespace QOR_SPACE {

// Where an exception arose: source file without extension, and line. Fixed numbers, not __LINE__: who reads
// an error location knows it by them, so they stay when the code around a throw moves.
struct ThrowPosition {
    const char* file;  // never null
    std::int32_t line;
};

// The library's one way to throw: an exception of class Kind with message and position.
template <class Kind>
[[noreturn]] void throwException(const ThrowPosition& position, const std::string& text);

// A failure with its message and source position. A value owned by the thread that handles it; catch by
// reference to const.
class Exception : public QorObject {
public:
    Exception();
    explicit Exception(const std::string& text);
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    // Through a const object: the type name.
    using QorObject::toString;
    // The message itself.
    virtual std::string& getMessage();
    const std::string& getMessage() const { return message; }
    // Through a non-const object: the message, valid as long as the exception.
    virtual const char* toString();
    // "<file>, line<line>", e.g. "io/File, line151"; ", line0" when no position was set.
    virtual std::string getErrorLocation();

private:
    template <class Kind>
    friend void throwException(const ThrowPosition& position, const std::string& text);

    std::string message;  // what failed
    std::string file;     // source file that threw, empty when not set
    std::int32_t line;    // source line that threw, 0 when not set
};

// A failure of input or output.
class IOException : public Exception {
public:
    explicit IOException(const std::string& text);
    IOException(const IOException&) = default;
    IOException& operator=(const IOException&) = default;
    ~IOException() override;
};

// Memory that could not be had.
class OutOfMemoryException : public Exception {
public:
    explicit OutOfMemoryException(const std::string& text);
    OutOfMemoryException(const OutOfMemoryException&) = default;
    OutOfMemoryException& operator=(const OutOfMemoryException&) = default;
    ~OutOfMemoryException() override;
};

template <class Kind>
void throwException(const ThrowPosition& position, const std::string& text) {
    Kind failure(text);
    failure.Exception::file = position.file;
    failure.Exception::line = position.line;
    throw failure;
}

}  // namespace QOR_SPACE

#endif
