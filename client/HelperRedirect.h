// Where the helper sends a browser instead.
#ifndef KATC_HELPERREDIRECT_H
#define KATC_HELPERREDIRECT_H

#include <string>
#include <string_view>
#include <vector>

namespace katc {

// A URL with places for {category}, {name} and {url}. Immutable once set, so for any number of threads.
class HelperRedirect {
public:
    // Takes the text apart. Empty when it can be used, else what is wrong with it, as part of a sentence.
    std::string set(std::string_view text);

    // Whether a URL of squid's is one that this one leads to: what stands before the first place means the
    // same. So does "host:port", as of CONNECT, when it is the page's. Such a page is not redirected to
    // itself.
    bool leadsTo(std::string_view url) const;
    // Adds the URL to `out`, the values with every byte escaped that is not a letter, a digit or one of -._~
    void append(std::string_view category, std::string_view name, std::string_view url,
                std::string* out) const;

private:
    enum class Kind { text, category, name, url };
    struct Piece {
        Kind kind;
        std::string text;  // of Kind::text
    };
    std::vector<Piece> pieces_;
    std::string fixed_;     // what stands before the first place, the authority as in hostPort_
    std::string hostPort_;  // host in small letters, ":" and the port, also the scheme's own
};

}  // namespace katc

#endif
