// The page to which the helper redirects a browser.
#ifndef KATC_HELPER_REDIRECT_H
#define KATC_HELPER_REDIRECT_H

#include <string>
#include <string_view>
#include <vector>

namespace katc {

// A URL with the placeholders {category}, {name} and {url}. Thread-safe once set.
class Redirect {
public:
    // Parses the URL. Returns an empty string if it can be used, else what is wrong with it, as the end of a
    // sentence.
    std::string set(std::string_view text);

    // Whether a URL of squid's leads to this page: it is equivalent up to the first placeholder, or it is
    // host:port, as in CONNECT, of the page's host. Such a URL is not redirected.
    bool leadsTo(std::string_view url) const;
    // Appends the URL to `out`. In the values, every byte that is not a letter, a digit or one of -._~ is
    // percent-encoded.
    void append(std::string_view category, std::string_view name, std::string_view url,
                std::string* out) const;

private:
    enum class Kind { text, category, name, url };
    struct Piece {
        Kind kind;
        std::string text;  // if Kind::text
    };
    std::vector<Piece> pieces_;
    std::string fixed_;     // the URL up to the first placeholder, normalised for comparison
    std::string hostPort_;  // lower-case host, ":" and the port, which may be the scheme's default
};

}  // namespace katc

#endif
