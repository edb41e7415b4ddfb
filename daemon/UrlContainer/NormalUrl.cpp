#include "UrlContainer/NormalUrl.h"

#include <cstring>
#include <initializer_list>

#include "KatdUtil/Characters.h"
#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

// Behind the scheme that the text begins with, in either case; its beginning when there is none.
const char* behindScheme(const char* text, const char* end) {
    if (text == end || (lower(*text) != 'h' && lower(*text) != 'f')) return text;
    for (const char* scheme : {"http://", "https://", "ftp://"}) {
        const char* at = text;
        while (at != end && *scheme != '\0' && lower(*at) == *scheme) {
            ++at;
            ++scheme;
        }
        if (*scheme == '\0') return at;
    }
    return text;
}

}  // namespace

NormalUrl normalise(const char* url, std::size_t length, char* to, bool decodesPath) {
    const char* end = url + length;
    while (end != url && isBlank(end[-1]))
        --end;
    while (url != end && isBlank(*url))
        ++url;
    url = behindScheme(url, end);

    NormalUrl result;
    char* write = to;
    for (; url != end && *url != '/'; ++url)
        *write++ = lower(*url);
    result.hostLength = static_cast<std::size_t>(write - to);
    result.hasPath = url != end;
    while (url != end) {
        char c = lower(*url++);
        if (c == '%' && decodesPath && end - url >= 2 && isHexDigit(url[0]) && isHexDigit(url[1])) {
            c = static_cast<char>(Utils::hex2uc(url[0]) * 16 + Utils::hex2uc(url[1]));
            if (c == '\0') break;
            url += 2;
        }
        *write++ = c;
    }
    *write = '\0';
    result.length = static_cast<std::size_t>(write - to);
    return result;
}

}  // namespace KATD_SPACE
