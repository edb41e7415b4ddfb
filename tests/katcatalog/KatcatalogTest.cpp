// The real katcatalog, as people use it.
#ifdef KATD_HAVE_PSL
#include <libpsl.h>
#endif

#include <fstream>
#include <random>

#include "support/Rounds.h"
#include "support/ShellTest.h"

using namespace katd_test;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class KatcatalogTest : public ShellTest {
protected:
    KatcatalogTest() : ShellTest(KATCATALOG_BINARY) {
        write("lists/ads/domains",
              "ads.example\n.dot.example\n||rule.example^\n@@||good.ads.example^\nb\xc3\xbc\x63her.example\n"
              "203.0.113.0/24\n[2001:db8::1]\n");
        write("lists/news/local/urls", "news.example/x\nhttp://news.example:8080/y?q\n");
        write("lists/unknown/domains", "nobody.example\n");
        write("hosts", "127.0.0.1 localhost\n0.0.0.0 ads.example host.example\n");
        write("categories", "ads = 44\nnews/local = 12\nlarge = 300\n");
    }

    std::string dump() {
        EXPECT_EQ(0, run("katcatalog check c.mdb")) << output << errors;
        EXPECT_EQ(0, run("katcatalog dump c.mdb")) << errors;
        return output;
    }

    const std::string everything =
        "ads.example\t44,300\tlists/ads/domains,hosts\n"
        "good.ads.example\t\t\tinstead\n"
        "dot.example\t44\tlists/ads/domains\n"
        "host.example\t300\thosts\n"
        "rule.example\t44\tlists/ads/domains\n"
        "xn--bcher-kva.example\t44\tlists/ads/domains\n"
        "203.0.113.0/24\t44\tlists/ads/domains\n"
        "2001:db8::1\t44\tlists/ads/domains\n"
        "news.example/x\t12\tlists/news/local/urls\n"
        "news.example:8080/y?q\t12\tlists/news/local/urls\n";
};

TEST_F(KatcatalogTest, importsWhatPeopleHave) {
    ASSERT_EQ(0, run("katcatalog import --map categories -o c.mdb lists large=hosts")) << errors;
    for (const char* const line : {"10 entries\n", "11 lines read", "1 folders without a number left out",
                                   "1 of these exceptions", "2 with a category above 255"})
        EXPECT_THAT(output, HasSubstr(line));
    EXPECT_EQ(everything, dump());
    EXPECT_EQ(0, run("katcatalog stat c.mdb"));
    EXPECT_THAT(output, HasSubstr("           6 44 (ads)\n"));
    EXPECT_THAT(output, HasSubstr("           2 hosts (2 lines)\n"));
    EXPECT_EQ(
        0, run("katcatalog import -q --compact --category 1 -o c.mdb - << END\na.example\nb.a.example\nEND"));
    EXPECT_EQ("a.example\t1\t-\n", dump());
    EXPECT_EQ(0, run("katcatalog import -q --category none -o c.mdb - << END\na.example\nEND"));
    EXPECT_EQ("a.example\t\t\n", dump());
}

TEST_F(KatcatalogTest, badLinesAreShownAndSkipped) {
    write("bad", "good.example\ncom\nco.uk\nblogspot.com\na b.example\n" + std::string(600, 'x') + "\n" +
                     "a.example/" + std::string(600, 'x') + "\na.example:0/x\n");
    EXPECT_EQ(0, run("katcatalog import -o c.mdb 5=bad"));
    EXPECT_THAT(output, HasSubstr("6 bad lines skipped\n           2 of these public suffixes"));
    EXPECT_THAT(errors, HasSubstr("bad:3: skipped, a public suffix"));
    EXPECT_EQ("blogspot.com\t5\tbad\ngood.example\t5\tbad\n", dump());
    EXPECT_EQ(0, run("katcatalog import -q --allow-suffixes -o c.mdb 5=bad"));
    EXPECT_THAT(dump(), HasSubstr("co.uk\t5"));
    EXPECT_EQ(1, run("katcatalog import --strict -o c.mdb 5=bad"));
    EXPECT_THAT(dump(), HasSubstr("co.uk\t5"));
}

// The first list takes longest: where there are several processors, the others are read meanwhile.
TEST_F(KatcatalogTest, listsRankInTheirOrderWhicheverIsReadFirst) {
    std::string first;
    for (int i = 0; i < 50000; ++i)
        first += "host" + std::to_string(i) + ".example\n";
    std::string inputs;
    std::string categories;
    for (int i = 1; i <= 20; ++i) {
        const std::string number = std::to_string(i);
        write("list" + number, (i == 1 ? first : "") + "a bad line\nshared.example\n");
        inputs += " " + number + "=list" + number;
        categories += (i == 1 ? "" : ",") + number;
    }
    ASSERT_EQ(0, run("katcatalog import --show 2 -o c.mdb" + inputs));
    EXPECT_THAT(output, HasSubstr("20 bad lines"));
    EXPECT_THAT(errors,
                testing::MatchesRegex("list1:50001: [^\n]*\nlist2:1: [^\n]*\n\\.\\.\\. and 18 more .*"));
    EXPECT_THAT(dump(), HasSubstr("\nshared.example\t" + categories + "\t"));
    for (const char* const list : {"list2", "list20"})
        write(list, "\x1f\x8b");
    EXPECT_EQ(1, run("katcatalog import --show 2 -o c.mdb" + inputs));
    EXPECT_THAT(errors,
                testing::MatchesRegex("list1:50001: [^\n]*\nkatcatalog: list2 is compressed[^\n]*\n"));
}

#ifdef KATD_HAVE_PSL
// It asks libpsl only about some of the hosts.
TEST_F(KatcatalogTest, refusesThePublicSuffixesOfLibpsl) {
    constexpr const char* path = "/usr/share/publicsuffix/public_suffix_list.dat";
    psl_ctx_t* const list = psl_load_file(path);
    if (list == nullptr) GTEST_SKIP() << "no " << path;
    std::ifstream file(path);
    std::string hosts;
    std::string expected;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '/') continue;
        line.erase(0, line.find_first_not_of("*.!"));
        for (const std::string& host : {line, "x." + line, "a.x." + line}) {
            hosts += host + "\n";
            ++number;
            if (psl_is_public_suffix2(list, host.c_str(), PSL_TYPE_ICANN | PSL_TYPE_NO_STAR_RULE) != 0)
                expected += std::to_string(number) + " ";
        }
    }
    psl_free(list);
    write("hosts", hosts);
    EXPECT_EQ(0, run("katcatalog import -q --show 1000000 --category 1 -o c.mdb hosts 2>&1 |"
                     " sed -n 's/^hosts:\\([0-9]*\\): skipped, a public suffix.*/\\1/p' | tr '\\n' ' '"));
    EXPECT_EQ(expected, output);
    EXPECT_GT(expected.size(), 10000U);
}
#endif

TEST_F(KatcatalogTest, findNamesTheEntryAndTheListOfEachCategory) {
    ASSERT_EQ(0, run("katcatalog import -q --map categories -o c.mdb lists large=hosts"));
    EXPECT_EQ(0, run("katcatalog find c.mdb 'http://u@WWW.ads.example:8080//banner/?x=1'"));
    EXPECT_EQ(
        "http://u@WWW.ads.example:8080//banner/?x=1\n"
        "  looked up as  www.ads.example:8080/banner?x=1\n"
        "  entry         ads.example\n"
        "    category    44 (ads), from lists/ads/domains (7 lines)\n"
        "    category    300 (large), from hosts (2 lines)\n"
        "  answer        44 (ads), 300 (large)\n",
        output);
    EXPECT_EQ(0, run("katcatalog find c.mdb x.good.ads.example"));
    EXPECT_THAT(output, HasSubstr("  entry         ads.example, does not count: below an exception\n"));
    EXPECT_THAT(output, HasSubstr("  answer        none\n"));
    EXPECT_EQ(1, run("printf 'news.example/x/y\\nother.example\\n' | katcatalog find --json c.mdb -"));
    EXPECT_THAT(output, HasSubstr("\"answer\":[12]}\n"));
    EXPECT_THAT(output, HasSubstr("\"entries\":[],\"answer\":[]}\n"));
}

TEST_F(KatcatalogTest, updatesAddAndRemove) {
    ASSERT_EQ(0, run("katcatalog import -q --map categories -o c.mdb lists large=hosts"));
    write("add", "ads.example\nnew.ads.example\n@@||new.example^\n");
    write("gone", "host.example\n203.0.113.0/24\nnever.example\n");
    ASSERT_EQ(0, run("katcatalog update --map categories c.mdb 7=add --remove gone --remove large=hosts"))
        << errors;
    EXPECT_THAT(output, HasSubstr("2 entries added"));
    EXPECT_THAT(output, HasSubstr("1 entries to be removed were not there"));
    std::string expected = everything;
    const auto replace = [&](const std::string& from, const std::string& to) {
        expected.replace(expected.find(from), from.size(), to);
    };
    replace("44,300\tlists/ads/domains,hosts\n", "44,7\tlists/ads/domains,add\n");
    replace("instead\n", "instead\nnew.ads.example\t7\tadd\n");
    replace("host.example\t300\thosts\n", "new.example\t\t\tinstead\n");
    replace("203.0.113.0/24\t44\tlists/ads/domains\n", "");
    EXPECT_EQ(expected, dump());
}

TEST_F(KatcatalogTest, syncMakesItSayWhatTheListsSay) {
    ASSERT_EQ(0, run("echo old.example | katcatalog import -q --category 3 -o c.mdb -"));
    ASSERT_EQ(0, run("katcatalog sync --map categories c.mdb lists large=hosts")) << errors;
    const std::string changed = " entries changed\n           ";
    EXPECT_THAT(output, HasSubstr("10 entries added\n           0" + changed + "1 entries removed"));
    EXPECT_EQ(everything, dump());
    EXPECT_EQ(1, run("katcatalog sync --min-items 3 c.mdb 3=hosts"));
    EXPECT_THAT(errors, HasSubstr("2 entries, fewer than 3: c.mdb is unchanged (--min-items)"));
    EXPECT_EQ(1, run("katcatalog sync --max-shrink 79 c.mdb 3=hosts"));
    EXPECT_EQ(0, run("katcatalog sync --max-shrink 80 --min-items 2 --dry-run c.mdb 3=hosts")) << errors;
    EXPECT_THAT(output, HasSubstr("8 entries removed"));
    write("hosts", "0.0.0.0 host.example below.ads.example\n");
    ASSERT_EQ(0, run("katcatalog sync --map categories c.mdb lists large=hosts"));
    EXPECT_THAT(output, HasSubstr("1 entries added\n           1" + changed + "0 entries removed"));
}

TEST_F(KatcatalogTest, misuseAndBadFilesHaveASentence) {
    const std::tuple<const char*, int, const char*> rows[] = {
        {"katcatalog", 2, "a command is missing"},
        {"katcatalog import -o c.mdb", 2, "an INPUT is missing"},
        {"katcatalog import -o c.mdb --category 65536 hosts", 2, "must be a number from 0 to 65535"},
        {"katcatalog find c.mdb", 2, "find needs a URL"},
        {"katcatalog find none.mdb a", 3, "catalogue none.mdb: No such file or directory"},
        {"katcatalog update hosts 5=hosts", 3, "catalogue hosts: not a catalogue"},
        {"katcatalog import -o c.mdb 5=none", 3, "none: No such file or directory"},
        {"katcatalog import -o no/c.mdb 5=hosts", 3, "no/c.mdb"},
        {"katcatalog import -o c.mdb hosts", 0, "skipped, "},
    };
    for (const auto& [line, status, error] : rows) {
        EXPECT_EQ(status, run(line)) << line;
        EXPECT_THAT(errors, HasSubstr(error)) << line;
    }
}

// Many hosts in lists of one category, so that two states are easy to distinguish.
class KatcatalogEndsTest : public KatcatalogTest {
protected:
    KatcatalogEndsTest() {
        std::string hosts;
        for (int i = 0; i < 8000; ++i)
            hosts += "h" + std::to_string(i) + (i % 3 == 0 ? ".a" : "") + ".example\n";
        write("many", hosts);
        EXPECT_EQ(0, run("katcatalog import -q -o c.mdb 1=many; katcatalog dump c.mdb >old; "
                         "sed 's/\\t1\\t/\\t2\\t/' old >new"));
        old_ = readFile(dir / "old");
        new_ = readFile(dir / "new");
    }
    // Old or new, and nothing else.
    void expectOneOfBoth() {
        const std::string state = dump();
        const bool isOld = state == old_;
        ASSERT_TRUE(isOld || state == new_);
        ASSERT_EQ(0, isOld ? 0 : run("katcatalog import -q -o c.mdb 1=many"));
    }

    std::string old_, new_;
};

TEST_F(KatcatalogEndsTest, killedAtAnyMomentItLeavesTheOldOrTheNewState) {
    std::mt19937 random(std::random_device{}());
    for (int i = 0; i < rounds(12, 200); ++i) {
        const double delay = std::uniform_real_distribution<>(0.0001, 0.12)(random);
        run("timeout --foreground -s KILL " + std::to_string(delay) + " katcatalog " +
            (i % 2 == 0 ? "import -o" : "sync") + " c.mdb 2=many");
        ASSERT_NO_FATAL_FAILURE(expectOneOfBoth());
    }
}

TEST_F(KatcatalogEndsTest, withoutSpaceItLeavesTheOldState) {
    // A file size limit simulates a full disk.
    for (const char* const command : {"import -o c.mdb", "sync c.mdb"}) {
        EXPECT_EQ(3, run("size=$(stat -c %s c.mdb); ulimit -f $((size / 2048)); trap '' XFSZ; katcatalog " +
                         std::string(command) + " 2=many"))
            << command << errors;
        EXPECT_EQ(old_, dump()) << command;
    }
    for (const fs::directory_entry& file : fs::directory_iterator(dir.path())) {
        const std::string name = file.path().filename();
        EXPECT_TRUE(name == "c.mdb" || name.find("c.mdb") == name.npos) << name;
    }
}

}  // namespace
