// Strings for HTML pages.
#ifndef GATEWAY_HTML_H
#define GATEWAY_HTML_H

#include <string>
#include <string_view>

namespace gateway {

// The string with the characters that HTML gives a meaning in text and in quoted attributes replaced.
std::string escaped(std::string_view string);

// A URL or host for people, escaped for HTML. Every byte but printable ASCII is shown as a percent escape: no
// character can change the direction of the text or look like another. At most `most` characters of the URL
// are shown, then an ellipsis.
std::string shownUrl(std::string_view url, std::size_t most = 300);

// The host of a URL, as it was written; empty without one.
std::string_view hostOf(std::string_view url);

// The value of a query parameter: escaped for a URL.
std::string urlEncoded(std::string_view string);

}  // namespace gateway

#endif
