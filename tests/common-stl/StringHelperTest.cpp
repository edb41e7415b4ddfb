#include <gtest/gtest.h>

#include <climits>

#include "StringHelper.h"

using namespace QOR_SPACE;

TEST(StringHelper, ComparesNullsAndTexts) {
    EXPECT_TRUE(StringHelper::equals(nullptr, nullptr));
    EXPECT_FALSE(StringHelper::equalsIgnoreCase("", nullptr));
    EXPECT_FALSE(StringHelper::startsWith("ab", "abc"));
    EXPECT_TRUE(StringHelper::startsWithIgnoreCase("ABc", "ab"));
    EXPECT_FALSE(StringHelper::endsWith("c", "abc"));
    EXPECT_FALSE(StringHelper::endsWith("abC", "bc"));
    EXPECT_TRUE(StringHelper::endsWithIgnoreCase("abC", "Bc"));
    EXPECT_EQ(6, StringHelper::indexOfIgnoreCase("Hello World", "WORLD", -5));
    EXPECT_EQ(-1, StringHelper::indexOfIgnoreCase("Hello World", "WORLD", 7));
    EXPECT_EQ(-1, StringHelper::indexOfIgnoreCase("abc", "a", 99));
    EXPECT_EQ(4, StringHelper::lastIndexOfIgnoreCase("abcABC", "bc"));
    EXPECT_FALSE(StringHelper::atob(nullptr));
}

TEST(StringHelper, ReplacesUntilNoneIsLeft) {
    const struct {
        const char *text, *from, *to, *expected;
    } cases[] = {{"aab", "ab", "b", "b"},  // inserted text takes part, and so does what moves together
                 {"xaabbx", "ab", "", "xx"},   {"bbaa", "ba", "ab", "aabb"},
                 {"aaa", "a", "aa", "aaaaaa"},  // contains from: once each
                 {"abc", "", "x", "abc"},      {"abc", nullptr, "x", "abc"},
                 {"abc", "a", nullptr, "abc"}};
    for (const auto& c : cases) {
        std::string s = c.text;
        StringHelper::replace(s, c.from, c.to);
        EXPECT_EQ(c.expected, s);
    }
    std::string endless = "aab";
    StringHelper::replace(endless, "ab", "bbaa");
    EXPECT_LE(endless.size(), StringHelper::replaceLengthLimit);
    std::string finite(40000, 'x');  // ends longer than the limit, but in one pass
    StringHelper::replace(finite, "x", "yz");
    EXPECT_EQ(80000u, finite.size());
}

TEST(StringHelper, ChangesAndConverts) {
    std::string s = "-\xE4z-";
    StringHelper::toupper(s);
    StringHelper::trim(s, "-");
    EXPECT_EQ("\xE4Z", s);
    StringHelper::trim(s, "\xE4Z");
    EXPECT_EQ("", s);
    EXPECT_EQ("-2147483648", StringHelper::ntoa(INT_MIN));
    EXPECT_EQ("0.500000", StringHelper::ftoa(0.5F));
}
