// The library's exceptions, thrown by value.
#ifndef QOR_EXCEPTION_H
#define QOR_EXCEPTION_H

#include <cstdint>
#include <string>

#include "Mutex.h"

namespace QOR_SPACE {

// Source file without extension, and line, of a throw. Fixed numbers instead of __LINE__: they identify the
// error and stay when the code moves.
struct ThrowPosition {
    const char* file;  // never null
    std::int32_t line;
};

// Throws an exception of class Kind. The library throws in no other way.
template <class Kind>
[[noreturn]] void throwException(const ThrowPosition& position, const std::string& text);

// A failure with a message and a source position. Catch by reference to const.
class Exception : public QorObject {
public:
    Exception();
    explicit Exception(const std::string& text);
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    // Of a const object: the type name.
    using QorObject::toString;
    // The message.
    virtual std::string& getMessage();
    const std::string& getMessage() const { return message; }
    // Of a non-const object: the message, valid as long as the exception.
    virtual const char* toString();
    // "<file>, line<line>", e.g. "io/File, line151"; ", line0" without a position.
    virtual std::string getErrorLocation();

private:
    template <class Kind>
    friend void throwException(const ThrowPosition& position, const std::string& text);

    std::string message;
    std::string file;   // source file, may be empty
    std::int32_t line;  // source line, 0 without one
};

// An I/O failure.
class IOException : public Exception {
public:
    explicit IOException(const std::string& text);
    IOException(const IOException&) = default;
    IOException& operator=(const IOException&) = default;
    ~IOException() override;
};

// A failed memory allocation.
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
