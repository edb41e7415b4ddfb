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

    bool isSet() const { return !pieces_.empty(); }
    // Whether a URL is one that this one leads to: what stands before the first place is the same. Such a
    // page is not redirected to itself.
    bool leadsTo(std::string_view url) const { return url.substr(0, fixed_.size()) == fixed_; }
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
    std::string fixed_;  // scheme, host and what stands before the first place
};

}  // namespace katc

#endif
