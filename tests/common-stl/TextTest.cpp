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
}

TEST(Utils, FindsBytesAndTokens) {
    EXPECT_TRUE(Utils::memstr("aab", 3, "ab", 2));
    EXPECT_FALSE(Utils::memstr("abab", 4, "abb", 3));
    EXPECT_STREQ("b", std::unique_ptr<char[]>(Utils::strToK("a,,b;c", 1, ",;")).get());
    EXPECT_EQ(nullptr, Utils::strToK("a,,b;c", 3, ",;"));
    EXPECT_EQ(nullptr, Utils::strToK(",a", 0, ",;"));
}

TEST(Utils, ParsesNumbersStrictly) {
    const struct {
        std::string text;
        int radix, value;
        const char* failure;
    } cases[] = {{" 42 7", 10, 42, ""},
                 {"17", 8, 15, ""},
                 {"1f", 16, 31, ""},
                 {"12/x", 10, 12, ""},
                 {{"\0005", 2}, 10, 5, ""},
                 {"4294967295", 10, -1, ""},
                 {"19", 8, 0, "invalid oct number at Utils, line109"},
                 {"g", 16, 0, "invalid hex number at Utils, line114"},
                 {"1a", 10, 0, "invalid dec number at Utils, line124"}};
    for (const auto& c : cases) {
        std::string failure;
        int value = 0;
        try {
            value = Utils::parseInt(c.text.c_str(), static_cast<int>(c.text.size()), c.radix);
        } catch (Exception& thrown) {
            failure = thrown.getMessage() + " at " + thrown.getErrorLocation();
        }
        EXPECT_EQ(c.value, value) << c.text;
        EXPECT_EQ(c.failure, failure) << c.text;
    }
}
