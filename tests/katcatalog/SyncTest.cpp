// katcatalog sync against katcatalog import.
#include <random>

#include "support/Rounds.h"
#include "support/ShellTest.h"

using namespace katd_test;

namespace {

using testing::HasSubstr;

class SyncTest : public ShellTest {
protected:
    SyncTest() : ShellTest(KATCATALOG_BINARY) {}

    unsigned upTo(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n)(random_); }
    bool oneIn(unsigned n) { return upTo(n - 1) == 0; }

    std::string line() {
        static const char* const forms[] = {"", "", "", "", "@@||", "7|", "9|", "http://", "||", "com #"};
        static const char* const rests[] = {"", "", "", "/x", ":80", "/X?y", "//x"};
        std::string host = std::string(1, "abcd"[upTo(3)]) + ".example";
        if (oneIn(3)) host = std::string(1, "abA"[upTo(2)]) + "." + host;
        if (oneIn(9)) host = "10.0.0." + std::to_string(upTo(2)) + (oneIn(2) ? "/31" : "");
        const std::string form = forms[upTo(9)];
        return form + host + (form.back() == '|' && form[0] >= '|' ? "^" : rests[upTo(6)]) + "\n";
    }
    // Changes a few lines of a file, or replaces it by another of the same size.
    void edit(const std::string& name) {
        std::string text = std::filesystem::exists(dir / name) ? readFile(dir / name) : "";
        for (unsigned n = upTo(3); n > 0; --n) {
            const std::size_t place = text.find('\n', upTo(static_cast<unsigned>(text.size()))) + 1;
            if (oneIn(2) && place > 0) text.erase(place, text.find('\n', place) + 1 - place);
            if (oneIn(2)) text.insert(oneIn(2) ? place : 0, line());
        }
        if (oneIn(4)) std::replace(text.begin(), text.end(), 'a', 'b');
        write(name, text);
    }

    std::mt19937 random_{std::random_device{}()};
};

TEST_F(SyncTest, anySequenceEndsLikeAnImport) {
    const std::string files[] = {"lists/c0/domains", "lists/c1/domains", "lists/c1/urls",
                                 "lists/c2/x/urls",  "lists/c3/domains", "loose"};
    for (const std::string& file : files)
        edit(file);
    std::string map, category, inputs, options;
    const auto choose = [&] {
        map.clear();
        for (unsigned i = 0; i < 4; ++i) {
            if (!oneIn(8))
                map += std::string("c") + "0123"[i] + (i == 2 ? "/x" : "") + " = 1" + "3345"[i] + "\n";
        }
        write("map", map + (oneIn(2) ? "loose = 13\n" : "other = 1\n"));
        category = oneIn(3) ? "none" : std::to_string(upTo(1));
        static const char* const orders[] = {"lists loose", "loose lists", "5=loose lists",
                                             "lists 6=loose lists/c0/domains", "lists"};
        inputs = orders[upTo(4)];
        options = oneIn(4) ? " --allow-suffixes" : "";
    };
    choose();
    ASSERT_EQ(0, run("printf 'old.example\n' | katcatalog import -q --category 3 -o c.mdb -"));
    for (int round = 0; round < rounds(40, 1000); ++round) {
        const std::string arguments = " -q --show 0 --map map --category " + category + options + " ";
        const std::string before =
            oneIn(15)   ? "katcatalog update -q c.mdb 13=loose --remove lists/c0/domains --remove 12=loose; "
            : oneIn(15) ? "katcatalog import --compact" + arguments + "-o c.mdb " + inputs + "; "
                        : "";
        ASSERT_EQ(0, run(before + "set -e; katcatalog sync" + arguments + (oneIn(20) ? "--all " : "") +
                         "c.mdb " + inputs + "; katcatalog import" + arguments + "-o new.mdb " + inputs +
                         "; for f in c new; do katcatalog check $f.mdb >&2; katcatalog dump $f.mdb >$f; "
                         "katcatalog stat $f.mdb | tail -n +2 | sort >>$f; done; diff new c"))
            << round << before << arguments << inputs << "\n"
            << output << errors;
        if (oneIn(12)) choose();
        if (oneIn(6)) std::filesystem::remove(dir / files[1 + upTo(3)]);
        for (unsigned n = upTo(2); n > 0; --n)
            edit(files[upTo(5)]);
    }
}

TEST_F(SyncTest, onlyWhatChangedIsRead) {
    const std::string sync = "katcatalog sync c.mdb 1=one 2=two 3=three";
    const auto notRead = [&](const std::string& count) {
        EXPECT_THAT(output, HasSubstr(" " + count + " lists not read, because they have not changed\n"));
    };
    for (const char* const name : {"one", "two", "three"})
        write(name, std::string(name) + ".example\nboth.example\n");
    ASSERT_EQ(0, run("katcatalog import -q -o c.mdb 1=one 2=two 3=three; cp c.mdb before; touch one; " +
                     sync + "; cmp c.mdb before"));
    notRead("3");
    write("two", "TWO.example\nboth.example\n@@||good.example^\n");
    EXPECT_EQ(0, run(sync));
    notRead("2");
    // Who else has an exception is not known, so its list is read with each that changed.
    write("one", "both.example\n");
    EXPECT_EQ(0, run(sync));
    notRead("1");
    EXPECT_EQ(0, run(sync + " --all; katcatalog dump c.mdb"));
    EXPECT_THAT(output, HasSubstr("both.example\t1,2,3\tone,two,three\n"));
    EXPECT_EQ(output.npos, output.find("not read"));

    // An entry of more lists than it can hold is only known if all are read.
    std::string many;
    for (unsigned i = 0; i < 300; ++i)
        many += std::to_string(i) + "|both.example\n";
    write("three", many);
    EXPECT_EQ(0, run(sync + " -q; " + sync));
    EXPECT_EQ(output.npos, output.find("not read"));
}

}  // namespace
