#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

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
    const char* textAt(int index) const {
        return list.buffer.get() + list.entries[static_cast<std::size_t>(index)].offset;
    }
    // The items of the list: "7:a 8:b ".
    std::string items() const {
        std::string result;
        const char* next = list.buffer.get();
        for (int i = 0; i < list.count; next += std::strlen(next) + 1, ++i) {
            EXPECT_EQ(textAt(i), next);  // without gaps
            result +=
                std::to_string(list.entries[static_cast<std::size_t>(i)].category) + ":" + textAt(i) + " ";
        }
        return result;
    }
    // The items that a file of that text gives, "" if the load fails.
    std::string held(const std::string& text) {
        EXPECT_EQ(load(text), list.loaded);
        EXPECT_EQ(list.loaded, list.buffer != nullptr);
        return items();
    }

    katd_test::TempDir dir;
    const std::string path = dir / "list";
    katd_test::CapturedMessages messages;
    StringList list;
};

TEST_F(ListFile, RefusesMalformedFirstLinesAndWhatIsNotARegularFile) {
    for (const std::string line : {"0|10", "5|0", "5|", "5", "5 5", ""}) {
        EXPECT_FALSE(load(line + " \r\n001|a\n")) << line;
        EXPECT_EQ(messages.texts(), (Texts{"DBG first line of url list file [" + line + "]",
                                           "ERR malformed url list file, first line [" + line + "]"}));
    }
    const std::string fifo = dir / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(load(""));
    for (const char* bad : {static_cast<const char*>(nullptr), fifo.c_str(), dir.path().c_str()})
        EXPECT_FALSE(list.load(bad));
    EXPECT_EQ(messages.texts(),
              (Texts{"ERR fail to read [" + path + "]", "DBG fail to open [(null)]",
                     "DBG fail to open [" + fifo + "]", "DBG fail to open [" + dir.path() + "]"}));
}

TEST_F(ListFile, ReadsItemsUntilALineThatIsNoneOrTheBufferIsFull) {
    const struct {
        const char *text, *items, *message;
    } cases[] = {
        {"3|100\n007|Example.com \t\r\n  7| b\n-01|c", "7:Example.com 7: b 4294967295:c ", "DBG items[3]"},
        {"9|9\n001|a\n1\n2|c\n", "1:a ", "DBG items[1]"},
        // A size of 4 makes a buffer of 7 bytes.
        {"2|4\n001|abc\n002|defgh\n", "1:abc 2:de ", "DBG items[2]"},
        {"3|4\n001|abcde\n002|x\n", "1:abcde ", "DBG items[1]"},
        {"3|4\n001|abcdef002|x\n", "", "ERR In StringList::readItemList(), offset[7] > bufferSize[7]"},
        {"1|2147483645\n001|a\n", "", "ERR fail to allocate memory [-2147483648] for url buffer"}};
    for (const auto& c : cases) {
        EXPECT_EQ(held(c.text), c.items) << c.text;
        EXPECT_EQ(messages.texts().back(), c.message) << c.text;
    }
}

// The file is read in blocks of 65536 bytes; every character of a line may be the first of a block.
TEST_F(ListFile, ReadsItemsThatLieInTwoBlocks) {
    // clang-format off
    const std::pair<std::string, std::string> lines[] = {
        {"123|ab\n", "123:ab 5:last "}, {{"123|a \0b\n", 9}, "123:a 5:last "},
        {"-01|a b \t \r\n", "4294967295:a b 5:last "}, {"\v 7|\n", "7: 5:last "}, {"1\n2|x\n", ""},
        {"12|x\n", ""},
    };
    // clang-format on
    for (const auto& [line, expected] : lines) {
        for (std::size_t first = 0; first < line.size(); ++first) {
            const std::string filler(3 * 65536 - first - 5, 'x');
            EXPECT_TRUE(held("3|300000\n001|" + filler + "\n" + line + "005|last\n") ==
                        "1:" + filler + " " + expected)
                << line << first;
        }
    }
}

TEST_F(ListFile, ReadErrorLosesTheLineInWhichItComes) {
    static std::string text;  // what the stream gives before the error
    cookie_io_functions_t functions{};
    functions.read = [](void*, char* to, std::size_t size) -> ssize_t {
        const std::size_t length = text.copy(to, std::min(size, std::size_t{3000}));
        text.erase(0, length);
        errno = EIO;
        return length == 0 ? -1 : static_cast<ssize_t>(length);
    };
    for (const std::string end : {"00", "003|", "003|c"}) {
        ASSERT_TRUE(load("4|80000\n001|\n001|\n001|\n001|\n"));
        const std::string filler(70000, 'x');
        text = "001|" + filler + "\n002|b\n" + end;
        std::FILE* stream = fopencookie(nullptr, "r", functions);
        EXPECT_EQ(list.readItemList(stream), 2);
        std::fclose(stream);
        EXPECT_TRUE(items() == "1:" + filler + " 2:b ") << end;
    }
}

TEST_F(ListFile, SearchComparesSignedBytesAndVisitsOnePath) {
    ASSERT_TRUE(load("5|20\n001|\x80\n002|ab\n003|abc\n004|abd\n005|b\n"));
    const struct {
        const char *key, *found, *foundPrefix;
    } cases[] = {{"ab", "ab", "ab"},         {"abc", "abc", "abc"},    {"\x80", "\x80", "\x80"},
                 {"\x80z", nullptr, "\x80"}, {"abcz", nullptr, "abc"}, {"a", nullptr, nullptr},
                 {"", nullptr, nullptr},     {"abz", nullptr, nullptr}};  // "ab" is not on the path
    for (const auto& c : cases) {
        std::uint32_t category = 77;
        EXPECT_STREQ(list.find(c.key, &category), c.found) << c.key;
        EXPECT_EQ(category == 77, c.found == nullptr);
        EXPECT_STREQ(list.find_sw(c.key, nullptr), c.foundPrefix) << c.key;
    }
}

}  // namespace
