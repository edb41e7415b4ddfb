#include <algorithm>
#include <random>

#include "StringList/StringList.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using KATD_SPACE::StringList;
using Texts = std::vector<std::string>;

class ListFile : public testing::Test {
protected:
    bool load(const std::string& text) {
        katd_test::writeFile(path, text);
        messages.clear();
        return list.load(path.c_str());
    }
    // What a list of that text holds: "7:a 8:b ", empty when the load fails.
    std::string held(const std::string& text) {
        EXPECT_EQ(load(text), list.loaded);
        std::string result;
        for (std::size_t i = 0; i < static_cast<std::size_t>(list.count); ++i)
            result += std::to_string(list.entries[i].category) + ":" +
                      (list.buffer.get() + list.entries[i].offset) + " ";
        return result;
    }

    katd_test::TempDir dir;
    const std::string path = dir / "list";
    katd_test::CapturedMessages messages;
    StringList list;
};

TEST_F(ListFile, RefusesMalformedFirstLines) {
    for (const std::string line : {"0|10", "5|0", "5|", "5", "|5", "-1|5", "5|-1", "x|5", "5 5", ""}) {
        EXPECT_FALSE(load(line + " \r\n001|a\n")) << line;
        EXPECT_EQ(messages.texts(), (Texts{"DBG first line of url list file [" + line + "]",
                                           "ERR malformed url list file, first line [" + line + "]"}));
        EXPECT_EQ(list.count, 0);
    }
    for (const std::string line : {" +1|\t+5x", "1 |5", "001x|05|7"})
        EXPECT_EQ(held(line + "\n007|a\n"), "7:a ") << line;
    EXPECT_EQ(held("1|9" + std::string(1020, ' ') + "007|a\n"), "7:a ");  // cut at 1023 characters

    EXPECT_FALSE(load(""));
    EXPECT_FALSE(list.load(nullptr));
    EXPECT_EQ(messages.texts(), (Texts{"ERR fail to read [" + path + "]", "DBG fail to open [(null)]"}));
}

TEST_F(ListFile, ReadsItemsUntilALineThatIsNoneOrTheSpaceEnds) {
    EXPECT_EQ(held("3|100\n007|Example.com \t\r\n  7| b\n-01|c"), "7:Example.com 7: b 4294967295:c ");
    EXPECT_EQ(messages.texts().back(), "DBG items[3]");
    EXPECT_EQ(held("2|100\n001|\n1|2|b\n"), "1: 1:b ");
    for (const char* text : {"1|9\n001|a\n002|b\n", "9|9\n001|a\n12|x\n003|c\n", "9|9\n001|a\n\n003|c\n",
                             "9|9\n001|a\n0031|c\n", "9|9\n001|a\n002|"})
        EXPECT_EQ(held(text), "1:a ") << text;
    EXPECT_EQ(held("3|100\n01|a\n"), "");
    // A size of 4 is a buffer of 7 bytes.
    EXPECT_EQ(held("2|4\n001|abc\n002|defgh\n"), "1:abc 2:de ");
    EXPECT_EQ(held("3|4\n001|abcdefg9|x\n003|y\n"), "1:abcdef ");
    EXPECT_EQ(held("3|4\n001|abcde\n002|x\n"), "1:abcde ");
}

TEST_F(ListFile, SpaceThatDoesNotSufficeFailsTheLoad) {
    EXPECT_EQ(held("3|4\n001|abcdef002|x\n"), "");
    EXPECT_EQ(messages.texts().back(), "ERR In StringList::readItemList(), offset[7] > bufferSize[7]");
    EXPECT_EQ(list.buffer, nullptr);
    EXPECT_EQ(held("1|2147483645\n001|a\n"), "");
    EXPECT_EQ(messages.texts().back(), "ERR fail to allocate memory [-2147483648] for url buffer");
    if (sizeof(void*) == 4) {
        EXPECT_EQ(held("2147483647|5\n001|a\n"), "");
        EXPECT_EQ(messages.texts().back(), "ERR fail to allocate memory [2147483647] for url info list");
    }
    EXPECT_EQ(held("1|9\n001|a\n"), "1:a ");  // and leaves the list fit for the next
}

TEST_F(ListFile, PrefixBesideTheSearchPathIsMissed) {
    ASSERT_TRUE(load("3|11\n001|ab\n002|abc\n003|abd\n"));
    std::uint32_t category = 77;
    EXPECT_EQ(list.find_sw("abz", &category), nullptr);
    EXPECT_EQ(category, 77U);
    EXPECT_STREQ(list.find_sw("abcz", &category), "abc");
    EXPECT_EQ(category, 2U);
}

// The order of the lists: bytes count as signed.
bool isLess(const std::string& left, const std::string& right) {
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(),
        [](char a, char b) { return static_cast<signed char>(a) < static_cast<signed char>(b); });
}

// The search as the lists promise it: recursive, on plain strings.
int plainSearch(const Texts& items, int low, int high, const std::string& key, bool prefix) {
    if (low > high) return ~low;
    const int middle = (low + high) / 2;
    const std::string& item = items[static_cast<std::size_t>(middle)];
    if (prefix ? key.compare(0, item.size(), item) == 0 : key == item) return middle;
    if (isLess(item, key)) return plainSearch(items, middle + 1, high, key, prefix);
    return low == high ? ~low : plainSearch(items, low, middle - 1, key, prefix);
}

TEST_F(ListFile, FindsWhatAPlainBinarySearchFinds) {
    std::mt19937 random(20);
    const auto text = [&random](std::size_t longest) {
        std::string result(1 + random() % longest, ' ');
        for (char& c : result)
            c = "ab\xC4"[random() % 3];
        return result;
    };
    int hits = 0;
    for (int round = 0; round < 50; ++round) {
        Texts items(1 + random() % 30);
        for (std::string& item : items)
            item = text(5);
        std::sort(items.begin(), items.end(), isLess);
        std::string lines = std::to_string(items.size()) + "|200\n";
        for (const std::string& item : items)
            lines += "001|" + item + "\n";
        ASSERT_TRUE(load(lines));
        const int last = static_cast<int>(items.size()) - 1;
        for (int i = 0; i < 100; ++i) {
            const std::string key = text(7);
            const int expected = plainSearch(items, 0, last, key, i % 2 != 0);
            ASSERT_EQ(list.find_i(i % 2 != 0 ? list.cmp_sw : list.cmp, 0, last, key.c_str()), expected)
                << key;
            hits += expected >= 0;
        }
    }
    EXPECT_GT(hits, 500);
}

}  // namespace
