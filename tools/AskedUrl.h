// The URL for which katd is asked when a proxy hands over a URL.
#ifndef KATD_TOOLS_ASKEDURL_H
#define KATD_TOOLS_ASKEDURL_H

#include <string>
#include <string_view>

namespace tools {

// Appends the URL to `out` without user information and without the dots that may end a host; also without
// the port unless keepsPort, because lists contain bare hosts. host:port, as in CONNECT, becomes the host.
// With isEscaped the host is percent-decoded, because squid encodes the values of external_acl_type. The rest
// is appended as it is: squid does not encode the URL's own escapes again, and katd decodes those. Appends
// nothing if there is no host.
void appendAskedUrl(std::string_view url, bool isEscaped, bool keepsPort, std::string* out);

}  // namespace tools

#endif
