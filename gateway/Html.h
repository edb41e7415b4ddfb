// Strings for HTML pages.
#ifndef GATEWAY_HTML_H
#define GATEWAY_HTML_H

#include <string>
#include <string_view>

namespace gateway {

// Escapes a string for HTML text and quoted attributes.
std::string escaped(std::string_view string);

// A URL or host for display, escaped for HTML. Bytes other than printable ASCII become percent escapes, so
// that no character can change the direction of the text or look like another. Cut after `most` characters,
// with an ellipsis.
std::string shownUrl(std::string_view url, std::size_t most = 300);

// A row of a list of names and values (<dl>). REQUIRES: both are escaped.
std::string row(const std::string& name, const std::string& html);

// The host of a URL, as it was written; empty without one.
std::string_view hostOf(std::string_view url);

// The value of a query parameter: escaped for a URL.
std::string urlEncoded(std::string_view string);

}  // namespace gateway

#endif
