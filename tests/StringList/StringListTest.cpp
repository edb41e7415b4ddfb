#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <cstring>
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
                             "9|9\n001|a\n0031|c\n", "9|9\n001|a\n1\n2|c\n", "9|9\n001|a\n002|"})
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

// Index of what a look-up has found, and how the plain search would have put it.
int indexOf(const StringList& list, const char* text, std::uint32_t category) {
    for (int i = 0; i < list.count; ++i) {
        const StringList::Entry& entry = list.entries[static_cast<std::size_t>(i)];
        if (text == list.buffer.get() + entry.offset) return entry.category == category ? i : -2;
    }
    return -1;
}

// Small lists and large ones, in order and not; many items are alike or begin like others.
TEST_F(ListFile, FindsWhatAPlainBinarySearchFinds) {
    std::mt19937 random(20);
    std::string bytes;
    for (int c = 1; c < 256; ++c)
        bytes += static_cast<char>(c);
    for (const char c : {'\n', '\r', '\t', ' '})
        bytes.erase(bytes.find(c), 1);
    int hits = 0, prefixHits = 0;
    for (int round = 0; round < 120; ++round) {
        const std::string letters[] = {"ab\xC4", "\x01\x7F\x80\xFF", "a", bytes};
        const std::string& alphabet = letters[random() % 4];
        Texts items(1 + random() % (round % 10 == 0 ? 5000 : 100));
        const auto text = [&](std::size_t longest) {
            // What an item has, if it is there already, and more.
            std::string result = items[random() % items.size()].substr(0, random() % 30);
            for (std::size_t more = random() % (longest + 1); more > 0; --more)
                result += alphabet[random() % alphabet.size()];
            return result;
        };
        std::size_t size = 0;
        for (std::string& item : items) {
            item = text(9);
            size += item.size() + 1;
        }
        if (round % 4 != 0) std::sort(items.begin(), items.end(), isLess);
        for (std::size_t i = 0; round % 4 == 1 && i < items.size(); i += 10)
            items[i].swap(items[random() % items.size()]);
        std::string lines = std::to_string(items.size()) + "|" + std::to_string(size) + "\n";
        for (std::size_t i = 0; i < items.size(); ++i)
            lines += std::to_string(100 + i % 900) + "|" + items[i] + "\n";
        ASSERT_TRUE(load(lines));
        ASSERT_EQ(list.count, static_cast<int>(items.size()));
        const int last = list.count - 1;
        for (int i = 0; i < 200; ++i) {
            const bool prefix = i % 2 != 0;
            const std::string key = text(7);
            const int expected = plainSearch(items, 0, last, key, prefix);
            ASSERT_EQ(list.find_i(prefix ? list.cmp_sw : list.cmp, 0, last, key.c_str()), expected);
            std::uint32_t category = 77;
            const char* found =
                prefix ? list.find_sw(key.c_str(), &category) : list.find(key.c_str(), &category);
            ASSERT_EQ(indexOf(list, found, category), std::max(expected, -1)) << round << " [" << key << "]";
            (prefix ? prefixHits : hits) += expected >= 0;
        }
    }
    EXPECT_GT(hits, 1000);
    EXPECT_GT(prefixHits, 2000);
}

// A stream of that text which, unless `failAt` is beyond it, fails there once all before has been read.
struct Source {
    std::string text;
    std::size_t failAt;
    std::size_t at = 0;
};

std::FILE* openSource(Source& source) {
    cookie_io_functions_t functions{};
    functions.read = [](void* cookie, char* to, std::size_t size) -> ssize_t {
        Source& from = *static_cast<Source*>(cookie);
        if (from.at >= from.failAt) {
            errno = EIO;
            return -1;
        }
        const std::size_t taken =
            from.text.copy(to, std::min({size, std::size_t{3000}, from.failAt - from.at}), from.at);
        from.at += taken;
        return static_cast<ssize_t>(taken);
    };
    return fopencookie(&source, "r", functions);
}

// Reading line by line, as the format of the lists is told.
std::int32_t readByLines(StringList& list, std::FILE* stream) {
    std::int32_t items = 0, offset = 0;
    for (; items < list.count; ++items) {
        char category[5] = "";
        if (std::fgets(category, sizeof category, stream) == nullptr || category[3] != '|') break;
        category[3] = '\0';
        if (offset >= list.bufferSize) return 0;
        char* text = list.buffer.get() + offset;
        const int room = list.bufferSize - offset;
        if (room < 2 || std::fgets(text, room, stream) == nullptr) break;
        KATD_SPACE::Utils::rtrim(text);
        list.entries[static_cast<std::size_t>(items)] = {
            offset, static_cast<std::uint32_t>(KATD_SPACE::Utils::toInt32(category))};
        offset += static_cast<std::int32_t>(std::strlen(text)) + 1;
    }
    return list.count = items;
}

TEST_F(ListFile, ReadsInBlocksWhatLinesWouldGive) {
    std::mt19937 random(7);
    const auto prepare = [](StringList& to, std::int32_t count, std::int32_t size) {
        to.reset();
        to.buffer.reset(new char[static_cast<std::size_t>(size)]);
        to.entries.reset(new StringList::Entry[static_cast<std::size_t>(count)]);
        to.bufferSize = size;
        to.count = count;
    };
    std::int64_t items = 0;
    int ended = 0, cut = 0, failed = 0, longest = 0;
    for (int round = 0; round < 600; ++round) {
        // Whole lines, mostly, up to several blocks of them, with something wrong here and there.
        const unsigned long faults = random() % 4 == 0 ? 3 : 5000;
        const std::size_t wanted = random() % 3 == 0 ? random() % 200000 : random() % 200;
        Source source{"", SIZE_MAX};
        while (source.text.size() < wanted) {
            const char* categories[] = {"012|", "999|", "  7|", "-01|", "+1x|", "\v 3|"};
            source.text += random() % 3 != 0 ? "123|" : categories[random() % 6];
            source.text += std::string(random() % 40, static_cast<char>('a' + random() % 26));
            if (random() % 200 == 0) source.text += std::string(random() % 90000, 'L');
            if (random() % faults == 0) {
                const std::string wrong[] = {"\n",     std::string(1, '\0'), "12|x", "\n1\n|", " \t\r",
                                             "\n\0 1|"};
                source.text += wrong[random() % 6];
            }
            const char* ends[] = {"\n", "\n", " \r\n", "\t \n"};
            source.text += ends[random() % 4];
        }
        if (random() % 4 == 0 && !source.text.empty()) source.text.pop_back();
        if (random() % 8 == 0) source.failAt = random() % (source.text.size() + 1);
        const std::int32_t count = 1 + static_cast<std::int32_t>(random() % (1 + wanted / 10));
        const std::size_t enough = source.text.size() + 1;
        const auto size = static_cast<std::int32_t>(round % 2 == 0 ? enough : 1 + random() % enough / 2);
        StringList expected;
        prepare(expected, count, size);
        prepare(list, count, size);
        const bool fails = source.failAt != SIZE_MAX;
        std::FILE* stream = openSource(source);
        const std::int32_t result = readByLines(expected, stream);
        std::fclose(stream);
        source.at = 0;
        stream = openSource(source);
        ASSERT_EQ(list.readItemList(stream), result) << round;
        std::fclose(stream);
        ASSERT_EQ(list.count, expected.count) << round;
        for (std::size_t i = 0; i < static_cast<std::size_t>(result); ++i) {
            const char* text = expected.buffer.get() + expected.entries[i].offset;
            ASSERT_EQ(list.entries[i].offset, expected.entries[i].offset) << round;
            ASSERT_EQ(list.entries[i].category, expected.entries[i].category) << round;
            ASSERT_STREQ(list.buffer.get() + list.entries[i].offset, text) << round;
            longest = std::max(longest, static_cast<int>(std::strlen(text)));
        }
        items += result;
        ended += result > 0 && result < count;
        cut += result == 0;
        failed += fails && result > 0;
    }
    EXPECT_GT(items, 40000);
    EXPECT_GT(ended, 100);
    EXPECT_GT(cut, 10);
    EXPECT_GT(failed, 20);
    EXPECT_GT(longest, 1 << 16);
}

}  // namespace
