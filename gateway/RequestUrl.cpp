#include "RequestUrl.h"

#include <algorithm>

#include "Html.h"
#include "tools/AskedUrl.h"

namespace gateway {

namespace {

// The value of a header that must be there once.
std::string onlyValue(const httplib::Request& request, const char* name) {
    return request.get_header_value_count(name) == 1 ? request.get_header_value(name) : std::string();
}

}  // namespace

std::string requestUrl(UrlSource source, const httplib::Request& request, std::string_view rest) {
    switch (source) {
        case UrlSource::none:
            return "";
        case UrlSource::nginx:
            return onlyValue(request, "X-Original-URL");
        case UrlSource::forwarded: {
            const std::string protocol = onlyValue(request, "X-Forwarded-Proto");
            const std::string host = onlyValue(request, "X-Forwarded-Host");
            const std::string target = onlyValue(request, "X-Forwarded-Uri");
            if (protocol.empty() || host.empty() || target.empty() || target[0] != '/') return "";
            return protocol + "://" + host + target;
        }
        case UrlSource::envoy: {
            const std::string host = onlyValue(request, "Host");
            if (host.empty() || rest.empty() || rest[0] != '/') return "";
            return "http://" + host + std::string(rest);
        }
    }
    return "";
}

std::string askedUrl(std::string_view url) {
    const auto isRefused = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7f; };
    std::string asked;
    if (std::none_of(url.begin(), url.end(), isRefused)) tools::appendAskedUrl(url, false, false, &asked);
    return hostOf(asked).empty() ? std::string() : asked;
}

}  // namespace gateway
