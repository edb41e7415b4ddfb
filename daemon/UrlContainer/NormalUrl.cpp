#include "UrlContainer/NormalUrl.h"

#include "KatdUtil/Characters.h"

namespace KATD_SPACE {

namespace {

// The URL without its scheme, in whatever case that is.
const char* skipScheme(const char* url, const char* end) {
    if (url == end || (lower(*url) != 'h' && lower(*url) != 'f')) return url;
    for (const char* scheme : schemes) {
        const char* rest = url;
        while (rest != end && *scheme != '\0' && lower(*rest) == *scheme) {
            ++rest;
            ++scheme;
        }
        if (*scheme == '\0') return rest;
    }
    return url;
}

}  // namespace

NormalUrl normalise(const char* url, std::size_t length, char* to, bool decodesPath) {
    const char* end = url + length;
    while (end != url && isBlank(end[-1]))
        --end;
    while (url != end && isBlank(*url))
        ++url;
    url = skipScheme(url, end);

    NormalUrl result;
    char* write = to;
    for (; url != end && *url != '/'; ++url)
        *write++ = lower(*url);
    result.hostLength = static_cast<std::size_t>(write - to);
    result.hasPath = url != end;
    while (url != end) {
        // An escape cannot reach beyond `end`: a blank or the NUL is there.
        if (decodesPath && isEscape(url)) {
            const char decoded = hexByte(url[1], url[2]);
            if (decoded == '\0') break;
            *write++ = decoded;
            url += 3;
        } else {
            *write++ = lower(*url++);
        }
    }
    *write = '\0';
    result.length = static_cast<std::size_t>(write - to);
    return result;
}

}  // namespace KATD_SPACE
