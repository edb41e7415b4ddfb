// The lists of the demonstration are files that people copy: they must be without a fault.
#include <sstream>
#include <string>
#include <vector>

#include "StringList/StringList.h"
#include "support/TempDir.h"

namespace katd_test {
namespace {

struct Item {
    std::string text;
    std::uint32_t category;
};

class DemoListTest : public testing::TestWithParam<const char*> {
protected:
    DemoListTest() : path(std::string(KATD_DEMO_FOLDER "/lists/") + GetParam()) {
        std::istringstream lines(readFile(path));
        std::getline(lines, header);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_EQ('|', line.at(3)) << line;
            items.push_back({line.substr(4), static_cast<std::uint32_t>(std::stoul(line.substr(0, 3)))});
        }
    }

    const std::string path;
    std::string header;
    std::vector<Item> items;
};

TEST_P(DemoListTest, HeaderCountsItemsAndBytes) {
    std::size_t bytes = 0;
    for (const Item& item : items)
        bytes += item.text.size() + 1;
    EXPECT_EQ(std::to_string(items.size()) + "|" + std::to_string(bytes), header);
    EXPECT_GE(items.size(), 100U);
}

TEST_P(DemoListTest, EveryItemIsFound) {
    KATD_SPACE::StringList list;
    ASSERT_TRUE(list.load(path.c_str()));
    for (const Item& item : items) {
        std::uint32_t category = 0;
        EXPECT_STREQ(item.text.c_str(), list.find(item.text.c_str(), &category));
        EXPECT_EQ(item.category, category) << item.text;
        if (GetParam() == std::string("urls.list")) {
            EXPECT_STREQ(item.text.c_str(), list.find_sw((item.text + "x").c_str(), nullptr));
        }
    }
}

TEST_P(DemoListTest, ItemsAreSortedAndOfReservedNames) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        const std::string& text = items[i].text;
        if (i != 0) {
            EXPECT_EQ(-1, KATD_SPACE::StringList::cmp(items[i - 1].text.c_str(), text.c_str())) << text;
        }
        for (const Item& other : items) {
            if (GetParam() == std::string("urls.list") && other.text != text) {
                EXPECT_NE(0, text.compare(0, other.text.size(), other.text))
                    << other.text << " hides " << text;
            }
        }
        EXPECT_GT(items[i].category, 0U);
        EXPECT_LE(items[i].category, 255U);
        const std::string host = text.substr(0, text.find('/'));
        const std::string end = host.substr(host.rfind('.'));
        const bool reserved = end == ".example" || end == ".test" || end == ".invalid" ||
                              host.compare(0, 11, "198.51.100.") == 0 ||
                              host.compare(0, 10, "203.0.113.") == 0;
        EXPECT_TRUE(reserved) << text;
    }
}

INSTANTIATE_TEST_SUITE_P(Demo, DemoListTest, testing::Values("urls.list", "domains.list"),
                         [](const auto& list) {
                             return std::string(list.param, std::string(list.param).find('.'));
                         });

}  // namespace
}  // namespace katd_test
