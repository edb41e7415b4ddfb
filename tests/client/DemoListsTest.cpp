// The lists of the demonstration are files that people copy: they must be without a fault.
#include <gmock/gmock.h>

#include "StringList/StringList.h"
#include "support/TempDir.h"

namespace katd_test {
namespace {

TEST(DemoLists, EveryItemIsFoundAndHidesNoOther) {
    for (const std::string name : {"urls.list", "domains.list"}) {
        const std::string path = KATD_DEMO_FOLDER "/lists/" + name;
        KATD_SPACE::StringList list;
        ASSERT_TRUE(list.load(path.c_str()));
        std::istringstream lines(readFile(path));
        std::string header;
        std::getline(lines, header);
        std::size_t items = 0, bytes = 0;
        for (std::string line; std::getline(lines, line); ++items, bytes += line.size() - 3) {
            const std::string text = line.substr(4), host = text.substr(0, text.find('/'));
            std::uint32_t category = 0;
            EXPECT_STREQ(text.c_str(), list.find(text.c_str(), &category));
            EXPECT_EQ(std::stoul(line.substr(0, 3)), category) << line;
            EXPECT_TRUE(category > 0 && category < 256) << line;
            if (name == "urls.list") {
                EXPECT_STREQ(text.c_str(), list.find_sw((text + "x").c_str(), nullptr));
            }
            EXPECT_THAT(host,
                        testing::MatchesRegex("(198.51.100|203.0.113)[.].*|.*[.](example|test|invalid)"))
                << "may be somebody's";
        }
        EXPECT_EQ(std::to_string(items) + "|" + std::to_string(bytes), header);
        EXPECT_GE(items, 100U);
    }
}

}  // namespace
}  // namespace katd_test
