#include <gtest/gtest.h>

#include "catalog/Url.h"

using namespace catalog;

namespace {

// Host, port if it was given, path; or the reason why it is none.
std::string canonical(std::string_view text, bool entry = false) {
    Url url;
    if (const char* const reason = entry ? readEntry(text, &url) : readUrl(text, &url)) return reason;
    std::string result = hostText(url.kind, url.host);
    if (url.kind == Url::ipv6) result = "[" + result + "]";
    if (url.kind != Url::name && url.prefix != 8 * url.host.size())
        result += "/" + std::to_string(url.prefix);
    if (url.portGiven) result += ":" + std::to_string(url.port);
    return result + url.path;
}

using Row = std::pair<const char*, const char*>;

TEST(CatalogUrlTest, spellingsOfOneUrlAreOne) {
    // clang-format off
    const Row rows[] = {
        {"a.example", "a.example"}, {"HTTP://A.Example/", "a.example"},
        {"  http:\\\\a.example\\x\\y ", "a.example/x/y"}, {"https:///a.example/x", "a.example/x"},
        {"//a.example/x", "a.example/x"}, {"gopher://a.example/x", "a.example/x"},
        {"user:pass@word@a.example/x", "a.example/x"}, {"http://a.example./X/", "a.example/x"},
        {"http://.a.example", "a.example"}, {"a.ex\tample/a\nb", "a.example/ab"},
        {"a.example:443", "a.example:443"}, {"a.example:/x", "a.example/x"},
        {"http://%61.ex%61mple/%41%2f%2F%3f%25", "a.example/a%2f%2f%3f%25"},
        {"a.example/a%zz%4", "a.example/a%25zz%254"}, {"a.example//x///y//", "a.example/x/y"},
        {"a.example/x/./y/../z/%2e%2E/w", "a.example/x/w"}, {"a.example/../../x", "a.example/x"},
        {"a.example/x/..", "a.example"}, {"a.example/x/?q=A/../b&c#f", "a.example/x?q=a/../b&c"},
        {"a.example?q", "a.example?q"}, {"a.example/?", "a.example"},
        {"a.example/x y\x01", "a.example/x%20y"}, {"a.example/x\x01y", "a.example/x%01y"},
        {"a.example#frag/x", "a.example"}, {"a_b.example", "a_b.example"}, {"localhost", "localhost"},
        {"http://203.0.113.7/x", "203.0.113.7/x"}, {"http://0xcb.0.0x71.07/", "203.0.113.7"},
        {"http://3405803783/", "203.0.113.7"}, {"http://203.7", "203.0.0.7"},
        {"http://203.0.113.7.:8080", "203.0.113.7:8080"},
        {"http://[2001:DB8:0::1]:81/x", "[2001:db8::1]:81/x"}, {"[2001:db8::0.0.0.1]", "[2001:db8::1]"},
        {"2001:db8::1", "[2001:db8::1]"}, {"[fe80::1%25eth0]", "[fe80::1]"},
        {"[::ffff:203.0.113.7]/x", "203.0.113.7/x"}, {"", "no host"}, {"http://", "no host"},
        {"http://.", "no host"}, {"a..example", "empty label in the host"},
        {"a b.example", "forbidden character in the host"},
        {"a%00.example", "forbidden character in the host"}, {"a.example:99999", "bad port"},
        {"a.example:x", "bad port"}, {"http://[::1", "bad IPv6 address"},
        {"http://[::g]", "bad IPv6 address"}, {"http://[::1]x", "bad IPv6 address"},
        {"1.2.3.4.5", "bad IPv4 address"}, {"256.1.1.1", "bad IPv4 address"},
        {"a.example.7", "bad IPv4 address"},
    };
    // clang-format on
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(expected, canonical(text)) << text;
    EXPECT_EQ("label of more than 63 bytes", canonical(std::string(64, 'a') + ".example"));
    EXPECT_EQ("host of more than 253 bytes", canonical(std::string(300, 'a')));
}

TEST(CatalogUrlTest, internationalisedNamesHaveOneSpelling) {
    for (const char* const text :
         {"b\xc3\xbc\x63her.example", "B\xc3\x9c\x43HER.example", "b%C3%BCcher.example",
          "bu\xcc\x88\x63her.example", "b\xc3\xbc\x63her\xe3\x80\x82\x65xample", "XN--BCHER-KVA.example"}) {
        EXPECT_EQ("xn--bcher-kva.example", canonical(text)) << text;
    }
}

TEST(CatalogUrlTest, entriesMayBeNetworks) {
    // clang-format off
    const Row rows[] = {
        {"203.0.113.0/24", "203.0.113.0/24"},
        {"203.0.113.7/24", "203.0.113.7/24"},  // a path: bits behind the prefix
        {"203.0.113.7/32", "203.0.113.7"}, {"203.0.113.0/33", "203.0.113.0/33"}, {"0.0.0.0/0", "0.0.0.0/0"},
        {"2001:db8::/32", "[2001:db8::]/32"}, {"[2001:db8::]/32", "[2001:db8::]/32"},
        {"::ffff:203.0.113.0/120", "203.0.113.0/24"}, {"http://203.0.113.0/24", "203.0.113.0/24"},
        {"a.example/24", "a.example/24"},
    };
    // clang-format on
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(expected, canonical(text, true)) << text;
    Url url;
    readEntry("203.0.113.7/24", &url);
    EXPECT_EQ("/24", url.path);
    readEntry("http://203.0.113.0/24", &url);
    EXPECT_EQ("/24", url.path);
}

}  // namespace
