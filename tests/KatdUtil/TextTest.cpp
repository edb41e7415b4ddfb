#include <gtest/gtest.h>

#include <memory>

#include "support/CapturedMessages.h"

namespace {

using KATD_SPACE::Utils;
using Texts = std::vector<std::string>;

// In-place changes are covered by the corpus of the URL fuzzer, and by the comparison with normalise().
TEST(Text, Numbers) {
    for (const char* text : {" 1", "1 ", "-1", "1.0", "1a", "/", ":"})
        EXPECT_FALSE(Utils::isDigit(text)) << text;
    EXPECT_EQ(Utils::toInt32("99999999999999999999"), INT32_MAX);
    EXPECT_EQ(Utils::toInt32("-2147483649"), INT32_MIN);
    EXPECT_EQ(Utils::toInt32(" \t+08|9"), 8);
    char blank[] = " ";
    EXPECT_STREQ(Utils::rtrim(blank), "");
    unsigned value = 77;
    EXPECT_FALSE(Utils::hex2ui("1f", &value));
    EXPECT_EQ(value, 77U);
    EXPECT_FALSE(Utils::hex2ui("FFffFFfg", &value));
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
