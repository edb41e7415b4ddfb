// The real katlist, as people use it. What it builds is read and searched by katd's own code.
#include <gmock/gmock.h>

#include <cstring>
#include <map>
#include <random>

#include "StringList/StringList.h"
#include "UrlContainer/UrlContainer.h"
#include "support/TempDir.h"

namespace katd_test {
namespace {

namespace fs = std::filesystem;
using KATD_SPACE::StringList;
using KATD_SPACE::UrlContainer;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class KatlistTest : public testing::Test {
protected:
    // Runs a shell line in the folder; the exit status.
    int run(const std::string& line) {
        const std::string script = "cd " + dir.path() + "; PATH=$(dirname " KATLIST_BINARY "):$PATH; { " +
                                   line + "\n} </dev/null >out 2>err";
        const int status = std::system(script.c_str());
        output = readFile(dir / "out");
        errors = readFile(dir / "err");
        return WEXITSTATUS(status);
    }
    void write(const std::string& name, const std::string& text) {
        fs::create_directories(fs::path(dir / name).parent_path());
        writeFile(dir / name, text);
    }
    std::string read(const std::string& name) { return readFile(dir / name); }

    TempDir dir;
    std::string output, errors;
};

TEST_F(KatlistTest, BuildsUrlsFromWhatPeopleHave) {
    write("plain",
          "\xef\xbb\xbf# a comment\n\n  HTTPS://One.Example/A%20b \r\ntwo.example/x # and another\n"
          "two.example/a#b\nthree.example/%41b\n");
    write("items", "7|ftp://four.example/|\n 08 | five.example/\n255|six.example\n");
    write("hosts",
          "127.0.0.1 localhost\n::1 ip6-localhost\n0.0.0.0\tseven.example  eight.example # c\nfe80::1%lo "
          "9.test");
    write("list", "2|9\n011|ten.example/%41\n012|Ten.example/Cap\n");
    ASSERT_EQ(0,
              run("echo std.in/put | katlist build --urls --category 5 -o urls plain items 9=hosts - list"));
    EXPECT_EQ("", errors);
    const std::string expected =
        "15|215\n009|9.test\n009|eight.example\n008|five.example/\n007|four.example/|\n005|one.example/a b\n"
        "009|seven.example\n255|six.example\n005|std.in/put\n011|ten.example/%41\n012|ten.example/Cap\n"
        "012|ten.example/cap\n005|three.example/Ab\n005|three.example/ab\n005|two.example/"
        "a#b\n005|two.example/x\n";
    EXPECT_EQ(expected, read("urls"));
    for (const std::string part : {"17 lines", "3 comments", "2 names", "13 items read", "15 items kept"})
        EXPECT_THAT(output, HasSubstr(part));
    EXPECT_EQ(0, run("katlist check urls && katlist build -q --urls -o urls urls"));
    EXPECT_EQ(expected, read("urls"));

    ASSERT_EQ(0,
              run("katlist build --urls --category 5 --bare-hosts slash --with-www -o urls 9=hosts plain"));
    EXPECT_THAT(read("urls"), HasSubstr("009|www.9.test/\n"));
    EXPECT_THAT(read("urls"), HasSubstr("005|www.three.example/Ab\n005|www.three.example/ab\n"));
    ASSERT_EQ(0, run("katlist build --urls --category 5 --bare-hosts skip -o urls 9=hosts plain"));
    EXPECT_THAT(output, HasSubstr("3 hosts without a path left out"));
    EXPECT_EQ(0, run("! grep 009 urls"));
}

TEST_F(KatlistTest, TheFirstLineOfAListIsToldFromAnItemOfDigits) {
    const std::pair<std::string, std::string> inputs[] = {
        {"12|2130706433\n12|a.b\n", "2|15\n012|2130706433\n012|a.b\n"},
        {"012|2000\n013|a.b\n", "2|9\n012|2000\n013|a.b\n"},
        {"120|2130706433\n121|a.b\n", "2|15\n120|2130706433\n121|a.b\n"},
        {"12|2000\na.b\n", "2|9\n012|2000\n001|a.b\n"},
        {"12|2000", "1|5\n012|2000\n"},
        {"1|5\n013|2000\n", "1|5\n013|2000\n"},
        {"2|9\r\n  7|2000\r\n013|a.b\r\n", "2|9\n007|2000\n013|a.b\n"}};
    for (const auto& [input, list] : inputs) {
        write("in", input);
        EXPECT_EQ(0, run("katlist build --domains --strict --category 001 -o list in")) << input << errors;
        EXPECT_EQ(list, read("list")) << input;
    }
}

TEST_F(KatlistTest, BuildsDomainsFromFoldersWithMappedNames) {
    write("map", "# numbers\nads = 5\nnews/local=12 # nested\nunused = 1\n");
    write("f/ads/domains", "Both.example\nads.example\nads.example\n192.0.2.1\nw.example\n");
    write("f/ads/urls", "not.these/\n");
    write("f/news/local/domains",
          "https://both.example./\n.news.example\nnews.example:8080\nwww.w.example\n");
    write("f/other/domains", "other.example\n");
    ASSERT_EQ(0, run("katlist build --domains --map map --with-www -o d f"));
    EXPECT_EQ(
        "11|162\n005|192.0.2.1\n005|ads.example\n005|both.example\n012|news.example\n012|news.example:8080\n"
        "005|w.example\n005|www.ads.example\n005|www.both.example\n012|www.news.example\n"
        "012|www.news.example:8080\n012|www.w.example\n",
        read("d"));
    EXPECT_THAT(errors, HasSubstr("both.example is 5 in f/ads/domains:1 and 12 in f/news/local/domains:1;"));
    EXPECT_THAT(errors, HasSubstr("no number for other"));
    EXPECT_THAT(errors, Not(HasSubstr("www.")));
    EXPECT_EQ(0, run("katlist check d")) << output;
    EXPECT_EQ(1, run("katlist build --domains --map map --strict -o d f"));
    EXPECT_EQ(2, run("katlist build --domains -o d f"));
    EXPECT_EQ(0, run("katlist build --domains --category 044 --show 010 -o d f && grep -c '^044|' d"));
    EXPECT_THAT(output, HasSubstr("\n8\n"));
    const std::string stored = "1|6\n001|a.ex.\n";  // which katd finds for http://a.ex./
    write("stored", stored);
    EXPECT_EQ(0, run("katlist check stored && katlist build --domains -o d stored")) << output << errors;
    EXPECT_EQ(stored, read("d"));
    EXPECT_EQ(0, run("katlist build -q --domains --map map -o d f/ads f/news/ 7=f/other/ && grep -c "
                     "'^0[015][257]|' d"));
    EXPECT_EQ("5\n", output) << errors << read("d");
    EXPECT_EQ(1, run("echo 'ads = 256' >>map; katlist build --domains --map map -o d f"));
    EXPECT_THAT(errors, HasSubstr("map:5: "));
}

TEST_F(KatlistTest, BadLinesAreSkippedShownAndCounted) {
    const std::map<std::string, std::vector<std::string>> bad = {
        {"urls",
         {"no host here/x", "wild*.example", "<td>", "a.example/x%20", "a.example/%0a", "a.example/%00x",
          "http://", "/path", "||ads.example^$popup", "256|a.example", "-01|a.example", "007|",
          std::string("zero\0byte", 9), std::string(65536, 'x'), "esc\x1b[31m", "#"}},
        {"domains",
         {"a.example/path", "a b", "a.*.example", "a.example?x", "...", "1.2.3.0/24", "2001:db8::/32",
          "2001:db8::1", "a.example:", "a.example:65536", "a.example:x", "a..example", "192.0.2.1-192.0.2.9",
          "192.0.2.1-9", "[2001:db8::x]", "\xff.example", "+|x", "\"quoted\"", "#"}}};
    for (const auto& [kind, lines] : bad) {
        std::string text = "good.example\n";
        for (const std::string& line : lines)
            text += line + "\n";
        write("in", text);
        ASSERT_EQ(0, run("katlist build --show 99 --category 1 --" + kind + " -o list in"));
        EXPECT_EQ("1|13\n001|good.example\n", read("list"));
        EXPECT_THAT(output, HasSubstr(" " + std::to_string(lines.size() - 1) + " bad lines"));
        for (std::size_t i = 2; i <= lines.size(); ++i)
            EXPECT_THAT(errors, HasSubstr("in:" + std::to_string(i) + ": skipped, ")) << lines[i - 2];
        EXPECT_EQ(std::string::npos, errors.find('\x1b'));
        EXPECT_EQ(0, run("katlist build --show 2 --category 1 --" + kind + " -o list in"));
        EXPECT_THAT(errors, HasSubstr("in:3: "));
        EXPECT_THAT(errors, HasSubstr("and " + std::to_string(lines.size() - 3) + " more bad lines"));
        EXPECT_THAT(errors, Not(HasSubstr("in:4: ")));
        EXPECT_EQ(1, run("rm list; katlist build --strict --category 1 --" + kind + " -o list in"));
        EXPECT_THAT(errors, StartsWith("katlist: in:2: "));
        EXPECT_FALSE(fs::exists(dir / "list"));
        EXPECT_EQ(1, run("katlist build --" + kind + " -o list in")) << "lines without a category";
    }
}

TEST_F(KatlistTest, ReadsTheFormatsOfOtherFilters) {
    const std::pair<std::string, std::string> inputs[] = {
        // what a list of the domain a.example comes from
        {"[Adblock Plus 2.0]\n! title\n||A.example^\n@@||b.example^\n", "1 exceptions left out"},
        {".a.example\n*.A.example\nhttp://a.example./\n", "2 items for a host and its subdomains"},
        {"address=/a.example/\naddress=/a.example/a.example/0.0.0.0\nserver=/a.example/\nserver=/b.example/"
         "#\n",
         "1 exceptions"},
        {"$TTL 300\n@ SOA localhost. root.localhost. (\n 1 ; serial\n 2 )\n  NS localhost.\n"
         "a.example CNAME . ; why\n*.a.example 300 IN CNAME *.\na.example A 0.0.0.0\n  AAAA ::\n"
         "b.example CNAME rpz-passthru.\n",
         "1 items for subdomains alone"},
        {"$ORIGIN rpz.test.\na.example.rpz.test. IN CNAME .\n", "1 items read"},
        {"server:\nlocal-zone: \"a.example.\" always_nxdomain\nlocal-zone: b.example transparent\n"
         "local-data: \"a.example 3600 IN A 0.0.0.0\"\n",
         "1 exceptions"},
    };
    for (const auto& [input, summary] : inputs) {
        write("in", input);
        EXPECT_EQ(0, run("katlist build --domains --strict --category 1 -o list in")) << errors;
        EXPECT_EQ("1|10\n001|a.example\n", read("list")) << input;
        EXPECT_THAT(output, HasSubstr(summary)) << input;
    }
    write(
        "in",
        "||a.example/x^\n||a.example^$popup\n@@|http://a.example|\nserver=/a.example/192.0.2.1\naddress=//\n"
        "a.example CNAME rpz-tcp-only.\n32.1.2.0.192.rpz-ip CNAME .\nlocal-zone: a.example nodefault\n"
        "local-data: \"a.example MX 10 x\"\nThis A test\n");
    EXPECT_EQ(1, run("katlist build --domains --category 1 -o list in"));
    EXPECT_THAT(errors, HasSubstr("in:10: skipped"));
    write("in",
          "b\xc3\xbc"
          "cher.example/\xc3\xbc\n");
    if (run("katlist build --urls --category 1 -o list in") != 0)
        EXPECT_THAT(errors, HasSubstr("built without libidn2"));
    else
        EXPECT_EQ("1|25\n001|xn--bcher-kva.example/\xc3\xbc\n", read("list"));
    EXPECT_EQ(1, run("printf '\\037\\213xx' | katlist build --urls --category 1 -o list -"));
    EXPECT_THAT(errors, HasSubstr("compressed by gzip"));
}

// Random items, many of which begin with others, and what must come of them by a plain rule: the shortest
// item that a URL begins with answers.
TEST_F(KatlistTest, EveryItemOfABuiltListIsFoundForWhateverBeginsWithIt) {
    std::mt19937 random(1);
    const auto text = [&random](std::size_t longest) {
        const std::vector<std::string> parts = {"a", "b", "/", "\xc3", "\x80", "~", "%62", "%C3", "|"};
        std::string result;
        for (std::size_t length = random() % (longest + 1); length > 0; --length)
            result += parts[random() % parts.size()];
        return result;
    };
    for (int round = 0; round < 60; ++round) {
        std::vector<std::string> items;
        std::string input;
        std::map<std::string, int> reference;  // as katd writes them
        for (std::size_t n = 1 + random() % 40; n > 0; --n) {
            const int category = static_cast<int>(random() % 3);
            items.push_back("h/" + text(5));
            input += std::to_string(category) + "|" + items.back() + "\n";
            std::string key = "h/" + items.back().substr(2);
            for (const auto& [escape, byte] :
                 {std::pair<std::string, std::string>{"%62", "b"}, {"%C3", "\xc3"}})
                for (std::size_t at = 0; (at = key.find(escape)) != std::string::npos;)
                    key.replace(at, escape.size(), byte);
            reference.emplace(key, category);
        }
        write("in", input);
        ASSERT_EQ(0, run("katlist build --urls -o list in && katlist check --urls list")) << output << errors;
        UrlContainer lists;
        ASSERT_TRUE(lists.load((dir / "list").c_str(), nullptr));
        for (const std::string& item : items) {
            for (int i = 0; i < 8; ++i) {
                const std::string url = item + (i == 0 ? "" : text(4));
                std::string key = url;  // katd changes it in place
                std::uint32_t category = 0;
                ASSERT_TRUE(lists.getUrlCategory(key.data(), &category));
                key.resize(std::strlen(key.c_str()));
                std::size_t length = 1;
                while (reference.count(key.substr(0, length)) == 0)
                    ASSERT_LE(++length, key.size()) << url << "\n" << input;
                ASSERT_EQ(reference.at(key.substr(0, length)), static_cast<int>(category)) << url << "\n"
                                                                                           << input;
            }
        }
        // Two that lie one below the other stay only by wish, and check tells.
        ASSERT_EQ(0, run("katlist build --urls --on-nested keep -o kept in"));
        const bool same = read("kept") == read("list");
        EXPECT_EQ(same ? 0 : 1, run("katlist check --urls kept"));
        EXPECT_EQ(same ? 0 : 1, run("katlist build --urls --on-nested fail -o failed in"));
        EXPECT_EQ(same, fs::exists(dir / "failed"));
        fs::remove(dir / "failed");
    }
}

TEST_F(KatlistTest, NestedItemsOfOtherCategoriesAreKeptByWishAlone) {
    write("in", "1|a/\n2|a/b\n1|a/b/c\n2|a/b/d\n1|a/e\n2|a/f\n");
    const std::string build = "katlist build --urls -o list in --on-nested ";
    ASSERT_EQ(0, run(build + "keep"));
    EXPECT_EQ("4|17\n001|a/\n002|a/b\n001|a/b/c\n002|a/f\n", read("list"));
    EXPECT_THAT(errors, HasSubstr("a/b/c is 1 in in:3, below a/b, which is 2 in in:2; both stay"));
    EXPECT_EQ(1, run("katlist check list"));
    ASSERT_EQ(0, run(build + "drop --show 2"));
    EXPECT_EQ("1|3\n001|a/\n", read("list"));
    EXPECT_THAT(errors, HasSubstr("and 1 more nested"));
    EXPECT_EQ(1, run(build + "fail"));
    EXPECT_THAT(errors, HasSubstr("katlist: 3 items lie below others"));
}

TEST_F(KatlistTest, CheckFindsWhatIsWrongAndGoesOn) {
    const std::string longItem(65536, 'x');
    // Lines of a list, and "LINE: a part of the finding" for each finding.
    const std::pair<std::string, std::vector<std::string>> lists[] = {
        {"2|4\n001|b\n001|a\n", {"3: wrong order: [a] comes before [b], line 2"}},
        {"2|10\n001|x/a\x80\n001|x/aa\n", {}},
        {"3|6\r\n001|a\r\n  2|b\r\n007|c \r\n", {}},
        {"3|6\n001|a\n\n001|b\n12|c\n",
         {"3: this is no item line", "1: wrong count: the first line says 3 items, the file has 2",
          "1: wrong size"}},
        {"1|2\n001|a\n\n002|b\n3|c\n", {"4: beyond the count", "1: wrong count", "1: wrong size"}},
        {"1|9\n001|a\n", {"1: wrong size: the first line says 9 bytes, the items need 2"}},
        {"2|2\n001|abcd\n001|b\n",
         {"2: the line is too long for the bytes of the first line", "1: wrong size"}},
        {"", {"1: the file is empty"}},
        {"001|a.example\n", {"1: the first line is no"}},
        {"1|2147483645\n001|a\n", {"1: the first line is no"}},
        {"1x|2\n001|a\n", {"1: the first line has other characters"}},
        {"1|2" + std::string(1100, ' ') + "\n001|abcdef\n",
         {"1: the first line has more than 1023 characters",
          "1: wrong size: the first line says 2 bytes, the items need 7"}},
        {"3|6\nabc|a\n300|b\n-01|c\n",
         {"2: the category [abc]", "3: the category [300] is no number from 0 to 255: katd answers 44",
          "4: the category [-01] is no number from 0 to 255: katd takes the item for a miss"}},
        {"5|40\n001| a\n001|B.example\n001|b/Cap\n001|c/Cap\n001|c/cap\n",
         {"2: never found", "3: never found, there are capital letters", "4: capital letters in the path",
          "1: wrong size"}},
        {"2|25\n001|a.example/\n001|http://b/\n", {"3: never found", "1: wrong size"}},
        {"2|4\n001|a\n001|a\n", {"3: the same item as line 2"}},
        {"3|13\n001|a/\n002|a/bc\n002|a/c\n", {"3: hides another: [a/bc] lies below [a/], line 2", "4: "}},
        {"1|65537\n001|" + longItem + "\n", {"2: the item is over-long"}},
        {"1|2\n001|a", {}},
        {"2|4\n001|a\n001|", {"3: the file ends before the item", "1: wrong"}},
    };
    for (const auto& [text, findings] : lists) {
        write("list", text);
        EXPECT_EQ(findings.empty() ? 0 : 1, run("katlist check list")) << text;
        for (const std::string& finding : findings)
            EXPECT_THAT(output, HasSubstr("list:" + finding)) << text;
        EXPECT_EQ(findings.empty(), output.find("list: fine, ") == 0) << text;
        EXPECT_EQ("", errors);
    }
    // What katd does not read it does not search either.
    for (const std::string start : {"x|9\n001|0\n", "9|99\n001|0\n\n", "1|2\n001|0\n", "9|2\n001|0\n"}) {
        write("list", start + "001|a/\n002|a/bc\n002|a/c\n002|b/Cap\n002|b/cap\n");
        EXPECT_EQ(1, run("katlist check list"));
        EXPECT_THAT(output, Not(testing::ContainsRegex("hid|capital"))) << start;
    }
    write("d", "2|14\n001|a.au\n001|a.au.xyz\n");
    EXPECT_EQ(1, run("katlist check --urls d"));
    write("d", "2|13\n001|a.au\n001|a.auxyz\n");
    EXPECT_EQ(0, run("katlist check d")) << "a host that begins with another one is not below it: " << output;
    write("d", "1|4\n001|a/b\n");
    EXPECT_EQ(1, run("katlist check --domains d"));
    EXPECT_THAT(output, HasSubstr("d:2: of no use, it has a path"));
    EXPECT_EQ(3, run("katlist check d none"));
}

// Lists with one byte changed, removed or doubled: of those that check calls fine katd holds and finds every
// item.
TEST_F(KatlistTest, WhatCheckCallsFineIsFoundWhole) {
    const std::string good = "4|31\n001|a.example\n002|b.ex/x\n200|b.ex/y|\n003|c.ex/\n";
    std::mt19937 random(2);
    std::string names;
    std::vector<std::string> files;
    for (int i = 0; i < 400; ++i) {
        std::string text = good;
        const std::size_t at = random() % text.size();
        const char byte = "\n|0a/\xff\0"[random() % 7];
        text.replace(at, random() % 2, random() % 3, byte);
        files.push_back("f" + std::to_string(i));
        write(files.back(), text);
        names += " " + files.back();
    }
    run("katlist check --urls --show 0" + names);
    EXPECT_EQ("", errors);
    int fine = 0;
    for (const std::string& name : files) {
        if (output.find(name + ": fine") == std::string::npos) continue;
        ++fine;
        StringList list;
        const std::string text = read(name);
        ASSERT_TRUE(list.load((dir / name).c_str())) << text;
        std::istringstream lines(text);
        std::string line;
        std::getline(lines, line);
        int count = 0;
        for (; std::getline(lines, line) && line.size() > 4; ++count) {
            const char* found = list.find_sw(line.substr(4).c_str(), nullptr);
            ASSERT_STREQ(line.substr(4).c_str(), found) << text;
        }
        EXPECT_EQ(list.count, count) << text;
    }
    EXPECT_GT(fine, 20);
    EXPECT_LT(fine, 300);
}

TEST_F(KatlistTest, FindSaysWhatKatdAnswersAndWhy) {
    write("u", "2|24\n012|a.example/x y\n300|b.example\n");
    write("d", "2|20\n005|a.example\n-01|c.test/\n");
    const std::pair<std::string, std::vector<std::string>> urls[] = {
        {"' HTTP://A.example/X%20y/z'",
         {"looked up as  a.example/x y/z\n", "category 12: the URL begins with [a.example/x y] of u\n"}},
        {"a.example/other", {"category 5: its host is [a.example] of d\n"}},
        {"b.example.evil.test", {"category 44 (of 300", "[b.example] of u"}},
        {"a.example:80", {"none: it is in neither list, katd would ask the engine"}},
        {"''", {"none"}},
        {"c.test", {"none"}},
        {"-- -x", {"-x\n", "none"}},
        {"-- build", {"build\n", "none"}},
        {"-- -", {"-\n  looked up as  -\n"}}};
    for (const auto& [url, parts] : urls) {
        const bool missed = parts.back().find("none") == 0 || parts.back()[0] == '-';
        EXPECT_EQ(missed ? 1 : 0, run("katlist find --urls u --domains d " + url)) << url;
        for (const std::string& part : parts)
            EXPECT_THAT(output, HasSubstr(part)) << url;
    }
    EXPECT_EQ(0, run("printf 'a.example/1\\r\\na.example/2\\n' | katlist find --domains d -"));
    EXPECT_THAT(output, HasSubstr("a.example/2\n"));
    EXPECT_EQ(1, run("printf 'a.example\\n\\r\\na.ex\\0mple\\n' | katlist find --domains d -"));
    EXPECT_EQ(
        "a.example\n  looked up as  a.example\n  answer        category 5: its host is [a.example] of d\n",
        output);
    EXPECT_EQ(
        "katlist: standard input:2: an empty URL is not asked: write one URL a line\n"
        "katlist: standard input:3: a URL with a zero byte is not asked: write one URL a line, as text\n",
        errors);
    EXPECT_EQ(1, run("katlist find --urls d --domains u a.example b.example x"));
    EXPECT_EQ(1, run("echo >u; katlist find --urls u x"));
    EXPECT_THAT(errors, HasSubstr("katlist check u says why"));
}

TEST_F(KatlistTest, StatCountsByCategory) {
    write("list", "3|12\n005|a.b\n005|b.c\n020|c.d\n");
    write("map", "ads = 5\n");
    EXPECT_EQ(0, run("katlist stat list --map map"));
    EXPECT_EQ(
        "category        items          bytes  name\n       5            2             24  ads\n"
        "      20            1             12\n     all            3             39\n",
        output);
    EXPECT_EQ(0, run("katlist stat --json --map map list | tr -d ' \\n'"));
    EXPECT_EQ(
        R"({"file":"list","items":3,"bytes":39,"categories":[{"category":5,"name":"ads","items":2,"bytes":24},)"
        R"({"category":20,"items":1,"bytes":12}]})",
        output);
    EXPECT_EQ(0, run("printf 'a\\033[31m = 5' >map; katlist stat list --map map"));
    EXPECT_THAT(output, HasSubstr("  a\\x1b[31m\n"));
    EXPECT_EQ(1, run("echo x >list; katlist stat list"));
}

TEST_F(KatlistTest, TheListIsReplacedWholeOrNotAtAll) {
    write("in", "a.example/\n");
    write("real/list", "old");
    fs::create_symlink("real/list", dir / "link");
    EXPECT_EQ(1, run("katlist build --urls --category 1 --strict -o link in - <<END\n*\nEND"));
    EXPECT_EQ(3, run("katlist build --urls --category 1 -o link in none"));
    EXPECT_EQ(1, run("katlist build --urls -o link in"));
    EXPECT_EQ(3, run("katlist build --urls --category 1 -o none/list in"));
    EXPECT_EQ(1, run("katlist build --urls --category 1 -o /dev/null in"));
    EXPECT_EQ("old", read("real/list"));
    EXPECT_EQ(
        0, run("umask 027; katlist build -q --urls --category 1 -o link in; stat -c %a real/list; ls real"));
    EXPECT_EQ("644\nlist\n", output);
    EXPECT_EQ("1|11\n001|a.example/\n", read("link"));
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    // Interrupted while it waits for input.
    EXPECT_EQ(143, run("mkfifo fifo; exec 3<>fifo; katlist build --urls --category 1 -o real/list fifo & "
                       "until ls real/list.* 2>/dev/null; do sleep 0.01; done; kill $!; wait $!"));
    EXPECT_EQ(0, run("ls real"));
    EXPECT_EQ("list\n", output);
}

TEST_F(KatlistTest, BadUsageIsToldInASentence) {
    write("x", "1|2\n001|a\n");
    std::istringstream bad(
        "|unknown|build|build --urls -o y|build -o y x|build --urls --domains -o y x|build --urls x|"
        "build --urls -o - --category 1 x|build --urls -o y --category 0x1 x|build --urls -o y --show 1e1 x|"
        "check --show 4294967296000 x|"
        "build --urls -o y --category 256 x|build --urls -o y --category -1 x|build --urls -o y 256=x|"
        "build --urls -o y --on-nested any x|build --urls -o y --bare-hosts any x|build --urls -o y --show "
        "-1 x|"
        "check|check --bad x|find x|find --urls x|stat|stat x x|");
    for (std::string arguments; std::getline(bad, arguments, '|');) {
        EXPECT_EQ(2, run("katlist " + arguments)) << arguments;
        EXPECT_THAT(errors, StartsWith("katlist: ")) << arguments;
        EXPECT_EQ("", output);
        EXPECT_FALSE(fs::exists(dir / "y") || fs::exists(dir / "-"));
    }
    ASSERT_EQ(0, run("mkfifo pipe"));  // nothing may wait for it
    for (const std::string arguments :
         {"build --urls -o y none", "check none", "find --urls none x", "stat none", "check .",
          "stat x --map none", "check x >/dev/full", "check pipe", "check --urls pipe", "stat pipe",
          "find --urls x --domains pipe x"}) {
        EXPECT_EQ(3, run("katlist " + arguments)) << arguments;
        EXPECT_THAT(errors, StartsWith("katlist: cannot ")) << arguments;
        EXPECT_THAT(errors, testing::ContainsRegex("check the path|save it as one first|free space"))
            << arguments;
    }
    for (const std::string arguments : {"--help", "--version", "build --help", "check -h"}) {
        EXPECT_EQ(0, run("katlist " + arguments));
        EXPECT_NE("", output);
        EXPECT_EQ("", errors);
    }
}

}  // namespace
}  // namespace katd_test
