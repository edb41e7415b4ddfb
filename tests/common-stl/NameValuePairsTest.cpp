#include <gtest/gtest.h>

#include "NameValuePairs.h"

using namespace QOR_SPACE;

namespace {

typedef NameValuePair<TypedValue> Pair;

Pair pairOf(const std::string& name, const std::string& text) {
    TypedValue value;
    value.text = text;
    return Pair(name, value);
}

}  // namespace

TEST(NameValuePairs, FindsTheFirstOfANameInAnyCase) {
    NameValuePairs record;
    Pair out = pairOf("untouched", "u");
    EXPECT_EQ(-1, record.get("host", out));
    EXPECT_EQ("untouched", out.name);
    EXPECT_EQ("", record.getByName("host"));
    EXPECT_EQ(0, record.add(pairOf("Host", "one")));
    EXPECT_EQ(1, record.add(pairOf("HOST", "two")));
    EXPECT_EQ(0, record.get("hOST", out));
    EXPECT_EQ("one", out.value.text);
    const NameValuePairs copy(record);
    EXPECT_TRUE(record.remove("host"));
    EXPECT_EQ("two", record.getByName("host"));
    EXPECT_EQ("HOST", record.remove(0).name);
    EXPECT_FALSE(record.remove("host"));

    record = copy;
    const char* shown = record.get(0).toString();
    EXPECT_STREQ("HOST=two", record.get(1).toString());
    EXPECT_STREQ("Host=one", shown);  // still valid after another pair was asked
    EXPECT_STREQ("=0", Pair().toString());
}
