// The real katlist, as people use it. What it builds is read and searched by katd's own code.
#include <unistd.h>

#include <random>

#include "listreader/LineFile.h"
#include "support/ShellTest.h"

using namespace katd_test;

namespace {

namespace fs = std::filesystem;
using listreader::LineFile;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

Words split(const std::string& text, const std::string& separator) {
    Words parts;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos;
         begin = end + separator.size())
        parts.push_back(text.substr(begin, end - begin));
    parts.push_back(text.substr(begin));
    return parts;
}

// The rows of a table, each on a line or before " ## ".
Words splitRows(const std::string& table) {
    Words rows;
    for (const std::string& line : split(table, "\n"))
        for (const std::string& row : split(line, " ## "))
            if (!row.empty()) rows.push_back(row);
    return rows;
}

// With \n, \r, \t and \xNN replaced, and {N*c} by N times the character.
std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '{') {
            result += std::string(std::stoul(text.substr(i + 1)), text[text.find('*', i) + 1]);
            i = text.find('}', i);
        } else if (text[i] != '\\') {
            result += text[i];
        } else if (text[++i] == 'x') {
            result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            result += text[i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : '\t';
        }
    }
    return result;
}

class KatlistTest : public ShellTest {
protected:
    KatlistTest()
        : ShellTest(KATLIST_BINARY,
                    "D='katlist build --domains --category 1 -o list'; "
                    "B='katlist build --urls --category 1'; U=\"$B -o list\"; ") {}
    // A row is "STATUS COMMAND <= INPUT => LIST ;; PART ;; ~PART". INPUT is written to the file "in", LIST is
    // what the file "list" contains afterwards, and each PART is in the output, or with ~ is not.
    void expect(const std::string& rows) {
        for (const std::string& row : splitRows(rows)) {
            SCOPED_TRACE(row.substr(0, 400));
            const Words words = split(row, " ;; ");
            const Words expected = split(words[0], " => ");
            const Words command = split(expected[0], " <= ");
            if (command.size() > 1) write("in", unescaped(command[1]));
            EXPECT_EQ(std::stoi(command[0]), run(command[0].substr(2))) << output << errors;
            EXPECT_EQ(expected.size() > 1 ? unescaped(expected[1]) : readFile(dir / "list"),
                      readFile(dir / "list"));
            for (std::size_t i = 1; i < words.size(); ++i) {
                const bool isAbsent = words[i][0] == '~';
                const std::string part = unescaped(words[i].substr(isAbsent ? 1 : 0));
                EXPECT_EQ(isAbsent, (output + errors).find(part) == std::string::npos)
                    << part << " in " << output << errors;
            }
        }
    }
};

TEST_F(KatlistTest, BuildsFromManyFormats) {
    write("plain",
          "\xef\xbb\xbf# a comment\n\n  HTTPS://One.Example/A%20b \r\ntwo.example/x # and another\n");
    write("more",
          "two.example/a#b\nthree.example/%41b\n7|ftp://four.example/|\n 08 | "
          "five.example/\n255|six.example\n");
    write("hosts",
          "127.0.0.1 localhost\n::1 ip6-localhost\n0.0.0.0\tseven.example  eight.example # c\nfe80::1%lo "
          "9.test");
    write("stored", "2|9\n011|ten.example/%41\n012|Ten.example/Cap\n");
    write("nested", "1|a/\n2|a/b\n1|a/b/c\n2|a/b/a\n1|a/e\n2|a/f\n");
    // The last rows: a header is distinguished from an item of digits; then the formats of other filters.
    expect(R"(
0 echo std.in/put | katlist build --urls --category 5 -o list plain more 9=hosts - stored => 15|215\n009|9.test\n009|eight.example\n008|five.example/\n007|four.example/|\n005|one.example/a b\n009|seven.example\n255|six.example\n005|std.in/put\n011|ten.example/%41\n012|ten.example/Cap\n012|ten.example/cap\n005|three.example/Ab\n005|three.example/ab\n005|two.example/a#b\n005|two.example/x\n ;; 17 lines ;; 3 comments ;; 2 names ;; 13 items read ;; 15 items kept
0 cp list old; katlist check list && katlist build -q --urls -o list list; cmp list old
0 katlist build --urls --category 5 --bare-hosts slash --with-www -o u 9=hosts more; cat u ;; 009|www.9.test/\n ;; 005|www.three.example/Ab\n005|www.three.example/ab\n
1 katlist build --urls --category 5 --bare-hosts skip -o u 9=hosts plain; grep 009 u ;; 3 hosts without a path left out ## 0 $D in <= 12|2130706433\n12|a.b\n => 2|15\n012|2130706433\n012|a.b\n
0 $D in <= 012|2000\n013|a.b\n => 2|9\n012|2000\n013|a.b\n ## 0 $D in <= 120|2130706433\n121|a.b\n => 2|15\n120|2130706433\n121|a.b\n ## 0 $D in <= 12|2000\na.b\n => 2|9\n012|2000\n001|a.b\n
0 $D in <= 12|2000 => 1|5\n012|2000\n ## 0 $D in <= 2|9\r\n  7|2000\r\n013|a.b\r\n => 2|9\n007|2000\n013|a.b\n ## 0 katlist check in && $D in <= 1|6\n001|a.ex.\n => 1|6\n001|a.ex.\n
0 $D --strict in <= [Adblock Plus 2.0]\n! title\n||A.example^\n||www.b.example^\n@@||b.example^\n => 1|10\n001|a.example\n ;; 1 exceptions read ;; 1 items removed
0 $D --strict in <= .a.example\n*.A.example\nhttp://a.example./\n => 1|10\n001|a.example\n ;; 2 items for a host and its subdomains
0 $D --strict in <= address=/a.example/\naddress=/a.example/b.example/0.0.0.0\nserver=/a.example/\nserver=/b.example/#\n => 1|10\n001|a.example\n ;; 1 items removed
0 $D --strict in <= $TTL 300\n@ SOA localhost. root.localhost. (\n 1 ; serial\n 2 )\n  NS localhost.\na.example CNAME . ; why\n*.a.example 300 IN CNAME *.\na.example A 0.0.0.0\n  AAAA ::\nb.example A 0.0.0.0\nb.example CNAME rpz-passthru.\n => 1|10\n001|a.example\n ;; 1 items for subdomains only ;; 1 items removed
0 $D --strict in <= $ORIGIN rpz.test.\na.example.rpz.test. IN CNAME .\n => 1|10\n001|a.example\n
0 $D --strict in <= server:\nlocal-zone: "a.example." always_nxdomain\nlocal-zone: b.example transparent\nlocal-data: "a.example 3600 IN A 0.0.0.0"\n => 1|10\n001|a.example\n ;; 1 exceptions
0 $U in && katlist check --urls list <= h/~\nh/a\nh/\xc3b\nh/\x80\n2|h/a/b\nh/a\x80\nh/bbbbbbbbz\nh/bbbbbbbb\x80\n => 6|41\n001|h/\x80\n001|h/\xc3b\n001|h/a\n001|h/bbbbbbbb\x80\n001|h/bbbbbbbbz\n001|h/~\n ## 0 $U in <= 2|a/\n1|a/\n => 1|3\n002|a/\n
1 $D in <= \x1f\x8bxx\n ;; katlist: in is compressed by gzip: unpack it first
1 $U nested --on-nested keep && katlist check list => 4|17\n001|a/\n002|a/b\n001|a/b/c\n002|a/f\n ;; a/b/c is 1 in nested:3, below a/b, which is 2 in nested:2; both stay
0 $U nested --on-nested drop --show 2 => 1|3\n001|a/\n ;; and 1 more nested ## 1 $U nested --on-nested fail ;; katlist: 3 items begin with others
)");
    write("in", "B\xc3\x9c\x63her.example/\xc3\x9c\nb\xc3\xbc\x63her.example/\xc3\xbc\n");
    if (run("$U in") == 0)
        EXPECT_EQ("2|50\n001|xn--bcher-kva.example/\xc3\x9c\n001|xn--bcher-kva.example/\xc3\xbc\n",
                  readFile(dir / "list"));
    else
        EXPECT_THAT(errors, HasSubstr("built without libidn2"));
}

TEST_F(KatlistTest, FoldersGetTheirCategoriesByName) {
    write("map", "ads = 5 # numbers\nnews/local=12\nunused = 1\n");
    write("late", "unused = 1\nnews/local=12\nads = 5\n");
    write("f/ads/domains", "Both.example\nads.example\nads.example\n192.0.2.1\nw.example\n");
    write("f/ads/urls", "not.these/\n");
    write("f/news/local/domains",
          "https://both.example./\n.news.example\nnews.example:8080\nwww.w.example\n");
    write("f/other/domains", "other.example\n");
    expect(R"(
0 katlist build --domains -o list --map map --with-www f && katlist check list => 11|162\n005|192.0.2.1\n005|ads.example\n005|both.example\n012|news.example\n012|news.example:8080\n005|w.example\n005|www.ads.example\n005|www.both.example\n012|www.news.example\n012|www.news.example:8080\n012|www.w.example\n ;; both.example is ads in f/ads/domains:1 and news/local in f/news/local/domains:1; the first one stays\n ;; no number for other ;; ~ads in f/ads/domains:5
0 katlist build --domains -o list --categories late f; grep both list ;; 012|both.example ## 1 katlist build --domains -o list --map map --strict f ;; a folder has no number ## 2 katlist build --domains -o list f
2 katlist build --domains -o list --map map --category ads f ;; --category has no effect ## 0 katlist build --domains -o list --category 044 --show 010 f && grep -c '^044|' list ;; \n8\n
0 katlist build --domains -o list -q --map map f/ads f/news/ 7=f/other/ && grep -c '^0[015][257]|' list ;; 5\n
0 katlist build --domains -o list --map map --category news/local in ads=f/other <= a.b\n => 2|18\n012|a.b\n005|other.example\n ## 2 katlist build --domains -o list --map map adds=f/other ;; the category of adds=f/other
1 echo 'ads = 256' >>map; katlist build --domains -o list --map map f ;; map, line 4:
)");
}

TEST_F(KatlistTest, BadLinesAreSkippedShownAndCounted) {
    // A line and a part of the reason; then those for one kind of list.
    const std::string both =
        R"(wild*.example ;; wildcards ## <td> ;; not a host ## http:// ;; nothing is left ## /path ;; no host ## ||a.example^$popup ;; filter rule ## @@|http://a.example| ;; filter rule
256|a.example ;; not a number from 0 to 255 ## -01|a.example ;; not a number from 0 to 255 ## 007| ;; nothing is left ## zero\x00byte ;; zero byte ## {65536*x} ;; longer than 65535
{2097152*x} ;; longer than 1 MiB ## esc\x1b[31m ;; not a host ## ... ;; not a host ## +|x ;; not a host ## "quoted" ;; not a host ## a b ;; a blank ## This A test ;; a blank ## 1.2.3.0/24 ;; network
2001:db8::/32 ;; network ## 2001:db8::1 ;; brackets ## [2001:db8::x] ;; no IPv6 ## a.example: ;; no port ## a.example:65536 ;; above 65535 ## a.example:x ;; not a number ## :80 ;; no host
a..example ;; empty label ## 192.0.2.1-192.0.2.9 ;; range ## 192.0.2.1-9 ;; range ## \xff.example ;; cannot convert ## server=/a.example/192.0.2.1 ;; a server ## address=// ;; no host
a.example CNAME rpz-tcp-only. ;; does not block ## 32.1.2.0.192.rpz-ip CNAME . ;; more than a host ## local-zone: a.example nodefault ;; does not block ## local-data: x ;; blocks no host)";
    const std::string ofUrls =
        " ## a b/x ;; blank ## a.b/x%20 ;; ends in a blank ## a.b/%0a ;; feed ## a.b/%00x ;; %00";
    const std::string ofDomains = " ## a.example/path ;; path ## a.example?x ;; path ## a'b ;; not a host";
    for (const bool isUrls : {true, false}) {
        const Words lines = splitRows(both + (isUrls ? ofUrls : ofDomains));
        std::string text = "good.example\n#\n";
        for (const std::string& line : lines)
            text += unescaped(split(line, " ;; ")[0]) + "\n";
        write("in", text);
        const std::string build = isUrls ? "$U " : "$D ";
        expect("0 " + build + "in --show 99 => 1|13\\n001|good.example\\n ;; " +
               std::to_string(lines.size()) + " bad ;; ~\\x1b");
        const Words shown = split(errors, "\n");
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_THAT(shown[i], StartsWith("in:" + std::to_string(i + 3) + ": skipped, "));
            EXPECT_THAT(shown[i], HasSubstr(split(lines[i], " ;; ")[1]));
        }
        const std::string more = std::to_string(lines.size() - 2);
        expect("0 " + build + "in --show 2 ;; in:4: ;; and " + more + " more bad lines ;; ~in:5: ");
        expect("2 rm list; " + build + "in --strict || ls list ;; katlist: in:3: ");
    }
    expect("1 katlist build --domains -o list in <= a\\n ;; in:1: skipped, it has no category");
}

// Lines of all lengths, so that their ends fall anywhere in the blocks that are read.
TEST_F(KatlistTest, LinesAreReadWhole) {
    std::mt19937 random(3);
    std::string text;
    for (std::size_t i = 0; i < 9000; ++i)
        text += std::string(i % 3000 == 1 ? LineFile::lineLimit - 2 + i / 3000 : random() % 700, 'a') + "\n";
    for (const std::string end : {"", "last", "\n"}) {
        write("in", text + end);
        LineFile file(dir / "in");
        std::istringstream reference(text + end);
        for (std::string line; std::getline(reference, line);) {
            if (!reference.eof()) line += '\n';
            ASSERT_TRUE(file.next());
            ASSERT_TRUE(line.substr(0, LineFile::lineLimit) == std::string(file.text, file.length))
                << file.number;
            ASSERT_EQ(line.size() <= LineFile::lineLimit ? 0 : line.size() - LineFile::lineLimit - 1,
                      file.dropped);
            if (file.number % 100 == 1) file.peek(4);
        }
        EXPECT_FALSE(file.next());
    }
}

TEST_F(KatlistTest, CheckFindsWhatIsWrongAndGoesOn) {
    write("big", "1|2097153\n001|" + std::string(1 << 21, 'x') + "\n");
    // Of what katd does not read, the last rows but three, nothing is said but that.
    expect(R"(
1 katlist check in <= 2|4\n001|b\n001|a\n ;; in:3: wrong order: [a] comes before [b], line 2 ## 0 katlist check in <= 2|10\n001|x/a\x80\n001|x/aa\n ;; in: fine, 
0 katlist check in <= 3|6\r\n001|a\r\n  2|b\r\n007|c \r\n ;; in: fine, 
1 katlist check in <= 3|6\n001|a\n\n001|b\n12|c\n ;; in:3: this is not an item line ;; in:1: wrong count: the first line says 3 items, the file has 2 ;; in:1: wrong size ;; ~fine
1 katlist check in <= 1|2\n001|a\n\n002|b\n3|c\n ;; in:4: beyond the count ;; in:1: wrong count ;; in:1: wrong size ## 1 katlist check in <= 1|9\n001|a\n ;; in:1: wrong size: the first line says 9 bytes, the items need 2
1 katlist check in <= 2|2\n001|abcd\n001|b\n ;; in:2: the line is too long for the bytes of the first line ;; in:1: wrong size ## 1 katlist check in <=  ;; in:1: the file is empty
1 katlist check in <= 001|a.example\n ;; in:1: the first line is not ## 1 katlist check in <= 1|2147483645\n001|a\n ;; in:1: the first line is not ## 1 katlist check in <= 1x|2\n001|a\n ;; in:1: the first line has other characters
1 katlist check in <= 1|2{1100* }\n001|abcdef\n ;; in:1: the first line has more than 1023 characters ;; in:1: wrong size: the first line says 2 bytes, the items need 7
1 katlist check in <= 3|6\nabc|a\n300|b\n-01|c\n ;; in:2: the category [abc] ;; in:3: the category [300] is not a number from 0 to 255: katd answers 44 ;; in:4: the category [-01] is not a number from 0 to 255: katd treats the item as a miss
1 katlist check in <= 5|40\n001| a\n001|B.example\n001|b/Cap\n001|c/Cap\n001|c/cap\n ;; in:2: never found ;; in:3: never found, it has capital letters ;; in:4: capital letters in the path ;; in:1: wrong size
1 katlist check in <= 2|25\n001|a.example/\n001|http://b/\n ;; in:3: never found ;; in:1: wrong size ## 1 katlist check in <= 2|4\n001|a\n001|a\n ;; in:3: the same item as line 2
1 katlist check in <= 3|13\n001|a/\n002|a/bc\n002|a/c\n ;; in:3: hides another: [a/bc] begins with [a/], line 2 ;; in:4:  ## 1 katlist check in <= 1|65537\n001|{65536*x}\n ;; in:2: the item is longer than
1 katlist check big ;; big:2: the item is longer than ;; ~wrong size ## 1 katlist check in <= 1|4\n001|a\x00b\n ;; in:2: there is a zero byte ## 1 katlist check in <= 1|2\x00\n001|a\n ;; in:1: there is a zero byte
1 katlist check in <= 2|28\n001|1.2.3.0/24\n001|[2001:db8::1]:80\n ;; in:2: of no use, it is a network ;; 1 finding ## 0 katlist check in <= 1|2\n001|a
1 katlist check in <= 2|4\n001|a\n001| ;; in:3: the file ends before the item ;; in:1: wrong ## 1 katlist check in <= x|9\n001|0\n001|a/\n002|a/bc\n002|a/c\n002|b/Cap\n002|b/cap\n ;; ~hid ;; ~capital
1 katlist check in <= 9|99\n001|0\n\n001|a/\n002|a/bc\n002|a/c\n002|b/Cap\n002|b/cap\n ;; ~hid ;; ~capital ## 1 katlist check in <= 1|2\n001|0\n001|a/\n002|a/bc\n002|a/c\n002|b/Cap\n002|b/cap\n ;; ~hid ;; ~capital
1 katlist check in <= 9|2\n001|0\n001|a/\n002|a/bc\n002|a/c\n002|b/Cap\n002|b/cap\n ;; ~hid ;; ~capital ## 1 katlist check --urls in <= 2|14\n001|a.au\n001|a.au.xyz\n ## 0 katlist check in <= 2|13\n001|a.au\n001|a.auxyz\n
1 katlist check --domains in <= 1|4\n001|a/b\n ;; in:2: of no use, it has a path ## 3 katlist check in none <= 1|2\n001|a\n ;; in: fine
)");
}

TEST_F(KatlistTest, FindAndStatExplainLists) {
    write("u", "2|24\n012|a.example/x y\n300|b.example\n");
    write("d", "2|20\n005|a.example\n-01|c.test/\n");
    write("three", "3|12\n005|a.b\n005|b.c\n020|c.d\n");
    write("map", "ads = 5\n");
    expect(R"(
0 katlist find --urls u --domains d ' HTTP://A.example/X%20y/z' ;; looked up as  a.example/x y/z\n ;; category 12: the URL begins with [a.example/x y] of u\n
0 katlist find --urls u --domains d a.example/other --map map ;; category 5 (ads): its host is [a.example] of d\n ## 0 katlist find --urls u --domains d b.example.evil.test ;; category 44 (of 300 ;; [b.example] of u
1 katlist find --urls u --domains d a.example:80 ;; none: it is in neither list, katd asks its engine ## 1 katlist find --urls u --domains d '' ;; none ## 1 katlist find --urls u --domains d c.test ;; none
1 katlist find --urls u --domains d -- -x build - ;; -x\n ;; build\n ;; -\n  looked up as  -\n ## 0 printf 'a.example/1\r\na.example/2\n' | katlist find --domains d - ;; a.example/2\n
1 printf 'a.example\n\r\na.ex\0mple\n' | katlist find --domains d - ;; standard input:2: an empty URL ;; standard input:3: a URL with a zero byte is not looked up ;; ~a.ex\n
1 katlist find --urls d --domains u a.example b.example x ## 1 katlist find --urls in x <=  ;; katlist check in explains why ## 1 katlist stat in
0 katlist stat three --categories map ;; category        items          bytes  name\n       5            2             24  ads\n      20            1             12\n     all            3             39\n
)");
    EXPECT_EQ(0, run("katlist stat --json --map map three | tr -d ' \\n'"));
    EXPECT_EQ(
        R"({"file":"three","items":3,"bytes":39,"categories":[{"category":5,"name":"ads","items":2,"bytes":24},)"
        R"({"category":20,"items":1,"bytes":12}]})",
        output);
}

TEST_F(KatlistTest, TheListIsReplacedWholeOrNotAtAll) {
    write("real/list", "old");
    write("other/list", "old");
    run("ln -s real/list link; chmod 640 real/list; mkdir -m 1777 sticky; mkfifo fifo; printf "
        "'a/\\nb/\\nc/\\n' >three");
    // With standard error closed, notes must not go into the list. At last, a signal while it waits for
    // input.
    expect(R"(
1 echo '*' | $B -o link --strict in - <= a.example/\nb.example/\n ## 3 $B -o link in none ## 1 katlist build --urls -o link in ## 3 $B -o none/list in ## 1 $B -o /dev/null in
1 $B -o link --min-items 3 in ;; 2 items, fewer than 3 ## 0 cat link; ls real; ls ;; old ;; list\n ;; ~list. ## 0 umask 077; $B -o link --min-items 2 in; stat -c %a real/list; ls real; cat link ;; 640\nlist\n2|22\n001|a.example/\n
0 test -L link; umask 027; $B -o new in; stat -c %a new ;; 640\n ## 1 $B -o list three; $U --max-shrink 33 in ;; 2 items instead of 3 ## 0 $U --max-shrink 34 in && $U --max-shrink 0 in && $B -o fresh --max-shrink 0 in
0 $U in 2>&- <= bad line\na.example/\n => 1|11\n001|a.example/\n
)");
#ifndef __SANITIZE_THREAD__  // which takes ignored signals for handled ones
    expect("3 ulimit -f 0; $B -o link in");
#endif
    for (const std::string signal : {"TERM", "ALRM", "XCPU"})
        expect(
            "0 exec 3<>fifo; $B -o other/list fifo & for i in $(seq 500); do ls other/list.* && break; sleep "
            "0.02; done; kill -" +
            signal + " $!; wait $!; ls other | wc -l ;; 1\\n");
    if (geteuid() != 0) return;  // to give files to another user
    expect(R"(
0 chown 65534:65533 real/list; $B -o link in; stat -c %u:%g real/list ;; 65534:65533 ## 1 ln -s ../new sticky/link; chown -h 65534 sticky/link; $B -o sticky/link in ;; belongs to another user
1 echo >sticky/list; chown 65534 sticky/list; $B -o sticky/list in ;; belongs to another user ## 0 ln -s ../new sticky/own; $B -o sticky/own in
)");
}

TEST_F(KatlistTest, BadUsageIsReportedInASentence) {
    write("x", "1|2\n001|a\n");
    ASSERT_EQ(0, run("mkfifo pipe"));  // nothing may wait for it
    for (const std::string& arguments : splitRows(R"(
2 ## 2 unknown ## 2 build ## 2 build --urls -o y ## 2 build -o y x ## 2 build --urls --domains -o y x ## 2 build --urls x ## 2 check
2 build --urls -o - --category 1 x ## 2 build --urls -o y --category 0x1 x ## 2 build --urls -o y --show 1e1 x ## 2 check --bad x
2 build --urls -o y --category 256 x ## 2 build --urls -o y 256=x ## 2 build --domains -o y --on-nested keep x ## 2 find x
2 build --urls -o y --on-nested any x ## 2 build --domains -o y --bare-hosts skip x ## 2 build --urls -o y --max-shrink 101 x
2 find --urls x ## 2 stat ## 2 stat x x ## 3 build --urls -o y none ## 3 check none ## 3 find --urls none x ## 3 stat none
3 check . ## 3 stat x --map none ## 3 check x >/dev/full ## 3 check pipe ## 3 check --urls pipe ## 3 stat pipe
3 find --urls x --domains pipe x
)")) {
        expect(arguments[0] + (" katlist" + arguments.substr(1)) + " ;; katlist: ");
        EXPECT_FALSE(!output.empty() || fs::exists(dir / "y") || fs::exists(dir / "-")) << arguments;
    }
    expect("0 katlist --help ;; build ## 0 katlist --version ;; katlist ## 0 katlist build -h ;; --urls");
}

}  // namespace
