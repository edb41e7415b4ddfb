#include <gtest/gtest.h>

#include <memory>

#include "support/CapturedMessages.h"

namespace {

using KATD_SPACE::Utils;
using Texts = std::vector<std::string>;

TEST(Text, ChangesInPlace) {
    const std::pair<char* (*)(char*), Texts> cases[] = {
        // Before and after, in turn.
        {Utils::trim, {" \t a b\r\n", "a b", "   ", "", "\va\f", "\va\f"}},
        {Utils::toLower, {"AbZ[@\xC4", "abz[@\xC4"}},
        {Utils::toUpper, {"aBz{`\xE4", "ABZ{`\xE4"}},
        {Utils::removePTP,
         {"https://a.b/c", "a.b/c", "http://ftp://a", "ftp://a", "ftp://", "", "HTTP://a", "HTTP://a",
          "x http://a", "x http://a"}},
        {Utils::decodeHexString,
         {"a%20b", "a b", "%41%42", "AB", "%4", "%4", "100%", "100%", "x%2", "x%2", "%zz%4g%%41", "%zz%4g%A",
          "%2541%fF", "%41\xFF", "a%00b", "a"}}};
    for (const auto& [change, texts] : cases) {
        for (std::size_t i = 0; i < texts.size(); i += 2) {
            std::string text = texts[i];
            EXPECT_STREQ(change(text.data()), texts[i + 1].c_str()) << texts[i];
        }
    }
}

TEST(Text, Numbers) {
    for (const char* text : {" 1", "1 ", "-1", "1.0", "1a", "/", ":"})
        EXPECT_FALSE(Utils::isDigit(text)) << text;
    EXPECT_EQ(Utils::toInt32("99999999999999999999"), INT32_MAX);
    EXPECT_EQ(Utils::toInt32("-2147483649"), INT32_MIN);
    EXPECT_EQ(Utils::toInt32(" \t+08|9"), 8);
    unsigned value = 77;
    EXPECT_FALSE(Utils::hex2ui("1f", &value));
    EXPECT_EQ(value, 77U);
    EXPECT_TRUE(Utils::hex2ui("FFffFF1f", &value));
    EXPECT_EQ(value, 0xFFFFFF1FU);
    const katd_test::CapturedMessages messages;
    EXPECT_STREQ(std::unique_ptr<char[]>(Utils::hex2str("4a4BfF00")).get(), "JK\xFF");
    for (const char* text : {"", "4", "4x41", "4141x4"})
        EXPECT_EQ(Utils::hex2str(text), nullptr) << text;
    EXPECT_EQ(messages.texts(),
              (Texts{"DBG Bad hex string [4]", "DBG Bad hex char [4x]", "DBG Bad hex char [x4]"}));
}

}  // namespace
