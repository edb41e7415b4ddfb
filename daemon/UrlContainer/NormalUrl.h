#ifndef KATD_NORMALURL_H
#define KATD_NORMALURL_H

#include <cstddef>

namespace KATD_SPACE {

// Layout of a normalised URL in its buffer.
struct NormalUrl {
    std::size_t length = 0;      // bytes before the closing NUL
    std::size_t hostLength = 0;  // bytes before the first "/", or all
    bool hasPath = false;        // there is a "/" at hostLength

    bool empty() const { return hostLength == 0 && !hasPath; }  // true also before the path is decoded
};

// Writes the normalised URL to `to` and closes it with a NUL: Utils::trim, toLower and removePTP in one pass,
// and with `decodesPath` also decodeHexString from the first "/" on. (One pass takes 27 ns for a usual URL,
// the four steps take 125.) The result is not longer than the URL; `to` is either the URL itself or does not
// overlap it. REQUIRES: length == strlen(url).
NormalUrl normalise(const char* url, std::size_t length, char* to, bool decodesPath);

}  // namespace KATD_SPACE

#endif
