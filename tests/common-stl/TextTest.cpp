#include <gtest/gtest.h>

#include <memory>

#include "Exception.h"
#include "StringHelper.h"
#include "Utils.h"

using namespace QOR_SPACE;

TEST(StringHelper, ReplacesUntilNoneIsLeft) {
    const struct {
        const char *text, *from, *to, *expected;
    } cases[] = {{"aab", "ab", "b", "b"},  // inserted text takes part, and so does what moves together
                 {"xaabbx", "ab", "", "xx"},   {"bbaa", "ba", "ab", "aabb"},
                 {"aaa", "a", "aa", "aaaaaa"},  // contains from: once each
                 {"abc", "", "x", "abc"},      {"abc", "a", nullptr, "abc"}};
    for (const auto& c : cases) {
        std::string s = c.text;
        StringHelper::replace(s, c.from, c.to);
        EXPECT_EQ(c.expected, s);
    }
    std::string endless = "aab", finite(40000, 'x');  // this ends longer than the limit, but in one pass
    StringHelper::replace(endless, "ab", "bbaa");
    EXPECT_LE(endless.size(), StringHelper::replaceLengthLimit);
    StringHelper::replace(finite, "x", "yz");
    EXPECT_EQ(80000u, finite.size());
    std::string overlapping = "  ab  ";
    StringHelper::trim(overlapping, overlapping.c_str() + 4);
    StringHelper::replace(overlapping, overlapping.c_str() + 1, overlapping.c_str());
    EXPECT_EQ("aab", overlapping);
}

TEST(Utils, FindsBytesTokensAndNumbers) {
    EXPECT_TRUE(Utils::memstr("aab", 3, "ab", 2));
    EXPECT_STREQ("b", std::unique_ptr<char[]>(Utils::strToK("a,,b;c", 1, ",;")).get());
    EXPECT_EQ(nullptr, Utils::strToK(",a", 0, ",;"));
    EXPECT_EQ(42, Utils::parseInt(" 42 7", 5, 10));
    EXPECT_EQ(15, Utils::parseInt("17", 2, 8));
    EXPECT_EQ(31, Utils::parseInt("1f", 2, 16));
    EXPECT_EQ(-1, Utils::parseInt("4294967295", 10, 10));
    EXPECT_EQ(5, Utils::parseInt("\0005", 2, 10));
    try {
        Utils::parseInt("1a", 2, 10);
        ADD_FAILURE();
    } catch (Exception& thrown) {
        EXPECT_EQ("invalid dec number at Utils, line124",
                  thrown.getMessage() + " at " + thrown.getErrorLocation());
    }
}
