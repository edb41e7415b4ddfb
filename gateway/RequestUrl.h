// The URL that a proxy asks about.
#ifndef GATEWAY_REQUESTURL_H
#define GATEWAY_REQUESTURL_H

#include <string>
#include <string_view>

#include "httplib.h"

namespace gateway {

// Where a front server names the URL of the request that it asks about. Headers of the other servers are
// never read: a client could have sent them.
enum class UrlSource {
    nginx,      // X-Original-URL, which nginx is configured to set
    forwarded,  // X-Forwarded-Proto, X-Forwarded-Host and X-Forwarded-Uri: Traefik, Caddy
    envoy,      // the Host of the request and what follows the policy in its path
};

// The URL; empty when the request does not name it, or names it twice, as a client that adds a header of its
// own behind a front server that does not replace it. `rest` is the part of the request's target behind the
// policy's name, as it was sent.
std::string requestUrl(UrlSource source, const httplib::Request& request, std::string_view rest);

// What katd is asked for a URL of a user or a proxy: without user information, port and the dots that may end
// its host, as lists hold bare hosts. Empty when it has no host, or holds a control byte or a blank.
std::string askedUrl(std::string_view url);

}  // namespace gateway

#endif
