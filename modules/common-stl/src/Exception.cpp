#include "Exception.h"

#include "StringHelper.h"

namespace QOR_SPACE {

Exception::Exception() : line(0) {}

Exception::Exception(const std::string& text) : message(text), line(0) {}

Exception::~Exception() = default;

std::string& Exception::getMessage() {
    return message;
}

const char* Exception::toString() {
    return message.c_str();
}

std::string Exception::getErrorLocation() {
    return file + ", line" + StringHelper::ntoa(line);
}

IOException::IOException(const std::string& text) : Exception(text) {}

IOException::~IOException() = default;

OutOfMemoryException::OutOfMemoryException(const std::string& text) : Exception(text) {}

OutOfMemoryException::~OutOfMemoryException() = default;

}  // namespace QOR_SPACE
