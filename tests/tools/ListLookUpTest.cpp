// A list that is scanned, by a plain search, answers as one that is loaded, by its index.
#include <gtest/gtest.h>

#include <random>

#include "support/Rounds.h"
#include "support/TempDir.h"
#include "tools/ListLookUp.h"

namespace {

using katd_test::TempDir;
using tools::ListLookUp;

// Lists of more than one part, sorted or not, some with a first line, a category or an end that is wrong.
TEST(ListLookUpTest, ScannedListsAnswerAsLoadedOnes) {
    std::mt19937 random(1);
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const char* alphabet = nullptr;
    const auto word = [&] {
        std::string text;
        for (unsigned size = 1 + below(4); size > 0; --size)
            text += alphabet[below(4)];
        return text;
    };
    const tools::CategoryNames names;
    TempDir dir;
    std::size_t hits = 0;
    for (int round = 0; round < katd_test::rounds(60, 1000); ++round) {
        const char* const alphabets[] = {"ab./", "a\xc4.-", "\x01\x7f\x80\xff"};
        alphabet = alphabets[round % 3];
        std::string files[2];
        for (std::string& file : files) {
            if (below(8) == 0) continue;
            file = dir / std::to_string(&file - files);
            std::vector<std::string> items(below(3) == 0 ? 10000 : below(50));
            for (std::string& item : items)
                item = word() + (items.size() > 100 ? word() + word() : "");
            if (below(3) > 0) std::sort(items.begin(), items.end());
            std::string lines;
            std::size_t size = 0;
            for (const std::string& item : items) {
                const char* const categories[] = {"012", "255", "-01", "x"};
                lines +=
                    std::string(categories[below(1000) == 0 ? 2 + below(2) : below(2)]) + "|" + item + "\n";
                size += item.size() + 1;
            }
            const unsigned wrong = below(6);
            if (wrong == 0) lines.resize(below(static_cast<unsigned>(lines.size()) + 1));
            if (wrong == 1) size -= std::min<std::size_t>(size, below(12));
            katd_test::writeFile(file,
                                 std::to_string(items.size()) + "|" + std::to_string(size) + "\n" + lines);
        }
        ListLookUp loaded(files[0], files[1], ListLookUp::Lists::loaded);
        ListLookUp scanned(files[0], files[1], ListLookUp::Lists::scanned);
        EXPECT_EQ(loaded.hasUrls(), scanned.hasUrls());
        EXPECT_EQ(loaded.hasDomains(), scanned.hasDomains());
        for (int i = 0; i < 100; ++i) {
            const std::string url =
                (below(4) == 0 ? "HTTP://" : "") + word() + word() + (below(4) == 0 ? "%61" : word());
            const tools::ListAnswer expected = loaded.find(url);
            const tools::ListAnswer found = scanned.find(url);
            hits += !expected.file.empty();
            EXPECT_EQ(loaded.text(url, expected, names), scanned.text(url, found, names))
                << "round " << round;
        }
    }
    EXPECT_GT(hits, 500u);
}

}  // namespace
