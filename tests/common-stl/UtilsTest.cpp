#include <gtest/gtest.h>

#include "Exception.h"
#include "Utils.h"

using namespace QOR_SPACE;

TEST(Utils, SearchesBytes) {
    const struct {
        std::string buffer, pattern;
        bool found;
    } cases[] = {{"", "", true},         {"abc", "abcd", false}, {"aab", "ab", true},
                 {"abab", "abb", false}, {"xya", "ab", false},   {std::string("a\0b", 3), {"\0b", 2}, true}};
    for (const auto& c : cases) {
        const int length = static_cast<int>(c.buffer.size());
        const int wanted = static_cast<int>(c.pattern.size());
        EXPECT_EQ(c.found, Utils::memstr(c.buffer.data(), length, c.pattern.data(), wanted)) << c.buffer;
    }
    EXPECT_EQ('F', Utils::CHAR_TO_HEX(-1));
    EXPECT_EQ(-2, Utils::HEX_TO_CHAR('f', 'E'));  // a signed byte
}

TEST(Utils, TakesTokens) {
    const struct {
        const char* text;
        int index;
        const char* token;
    } cases[] = {{"a,,b;c", 0, "a"}, {"a,,b;c", 1, "b"}, {"a,,b;c", 3, nullptr}, {",a", 0, nullptr},
                 {",a", 1, "a"},     {"a,", 1, nullptr}, {"", 2, nullptr},       {"a", -1, nullptr}};
    for (const auto& c : cases) {
        char* token = Utils::strToK(c.text, c.index, ",;");
        EXPECT_STREQ(c.token, token) << c.text << ' ' << c.index;
        delete[] token;
    }
    std::vector<std::string> tokens = {"old"};
    int argument = 0;
    const auto trim = [](std::string& token, void*) { Utils::trimString(token); };
    Utils::stringTokenizer(" a\t,,\nb,", tokens, ",", trim, &argument);
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), tokens);
    std::string blanks = " \t\r\n";
    EXPECT_EQ(nullptr, Utils::trimString(blanks));
    EXPECT_TRUE(Utils::isdigits("12:30", ":"));
    EXPECT_FALSE(Utils::isdigits("", ":"));
    EXPECT_EQ(4095u, Utils::formatString("%5000d", 1).size());
}

TEST(Utils, ParsesNumbersStrictly) {
    const struct {
        std::string text;
        int radix, value;
        const char* failure;
    } cases[] = {{" 42 7", 10, 42, ""},
                 {"17", 8, 15, ""},
                 {"1f", 16, 31, ""},
                 {"", 10, 0, ""},
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
