// The URL that a proxy asks about.
#ifndef GATEWAY_REQUESTURL_H
#define GATEWAY_REQUESTURL_H

#include <string>
#include <string_view>

#include "httplib.h"

namespace gateway {

// Where a front server puts the URL of the request. The headers of other kinds of server are ignored, because
// a client could have sent them.
enum class UrlSource {
    nginx,      // X-Original-URL, which nginx is configured to set
    forwarded,  // X-Forwarded-Proto, X-Forwarded-Host and X-Forwarded-Uri: Traefik, Caddy
    none,       // squid asks by its helper: the policy is that of its block page alone
    envoy,      // the Host of the request and what follows the policy in its path
};

// The URL. Empty if the request does not name one, or has a header twice: a client may have added one that
// the front server did not replace. `rest` is the part of the request's target after the policy's name,
// unchanged.
std::string requestUrl(UrlSource source, const httplib::Request& request, std::string_view rest);

// The URL to ask katd for: without user information, port and dots at the end of the host, because lists
// contain bare hosts. Empty if there is no host, or if the URL contains a control byte or a blank.
std::string askedUrl(std::string_view url);

}  // namespace gateway

#endif
