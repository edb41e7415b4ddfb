// katc and katc helper, run by shell lines.
#include <set>

#include "support/Daemon.h"
#include "support/FakeDaemon.h"
#include "support/ShellTest.h"

using namespace katd_test;

namespace {

using testing::HasSubstr;

// clang-format off
class KatcTest : public ShellTest {
protected:
    KatcTest() : ShellTest(KATC_BINARY) {}
    // The categories of the first host of the table that a message contains, else an unknown. Nothing for
    // "silent", nor for "refused!", after which the FakeDaemon closes the connection.
    static std::string answer(const std::string& message) {
        if (contains(message, "silent") || message == "url0refused!" || message == "ctl:save_cache") return "";
        const std::pair<const char*, const char*> known[] = {
            {"ads.example", "\x0c"}, {"multi.example", "\x05\x2c\xc8"}, {"news.example", "\x22"}, {"none.example", ""}};
        for (const auto& [host, categories] : known) {
            if (contains(message, host)) return reply(1, categories);
        }
        return reply(0, "");
    }

    const std::string socket = dir / "socket";
};

struct Row {
    std::string line;
    int status;
    std::string output;
    std::string errors;  // a part of standard error; empty: nothing is written there
    std::string asked;   // messages to the daemon, with | between; "*": not compared
};

// A line that feeds lines to the helper.
std::string helper(const std::string& options, const std::string& lines) {
    return "printf %s '" + lines + "' | katc helper " + options + " -s socket";
}

// A helper that is asked while the daemon is there, then while it is away, and so on; then its messages.
std::string outlives(const std::string& options, const std::string& channel) {
    return "mkfifo in answers; ln -s socket link; katc helper " + options + " -s link <in >answers 2>messages & "
           "cd .; exec 3>in 4<answers; ask() { echo \"" + channel + "$1\" >&3; read -r line <&4; echo \"$line\"; }; "
           "for i in 1 2; do ask ads.example!; rm link; ask ads.example; ask ads.example; ln -s socket link; done; "
           "ask ads.example; exec 3>&-; wait $! && cut -c 1-34 messages; rm in answers link";
}

TEST_F(KatcTest, Answers) {
    const std::string redirect = "OK status=302 url=\"http://b.example/?", noHost = "BH message=\"the URL has no host\"\n";
    const std::string noUrl = "BH message=\"the line has no URL where --url-field says, or is too long\"\n";
    const std::string late = "BH message=\"no answer within the time limit: see katd's log, or wait longer\"\n";
    const std::string ads = "OK category_=12 log=12 message=\"category 12\"\n", adsLine = "ads.example\tknown\t12\n";
    const std::string named = "OK category_=12 name_=\"a\\\"b\\\\c\" log=\"a\\\"b\\\\c\" message=\"a\\\"b\\\\c\"\n";
    const std::string gone = "katc helper: no daemon answers on \nkatc helper: katd answers again.\n";
    const std::string page = "OK status=302 url=\"http://b.example\"\n";
    const Row rows[] = {
        // Plain and JSON output.
        {"katc -s socket ads.example -r -- multi.example ctl -r", 0,
         adsLine + "multi.example\tknown\t5,44,200\nctl\tunknown\t\n-r\tunknown\t\n", "",
         "url1ads.example|url1multi.example|url1ctl|url1-r"},
        {"katc -s socket --categories names multi.example none.example", 0,
         "multi.example\tknown\t5,online games,200\nnone.example\tknown\t\n", "", "*"},
        {"printf 'ads.example/\\t\\033\\302\\233\\344\\r\\n\\n \\nb\\0c\\nd' | katc -s socket -", 1,
         "ads.example/\\x09\\x1b\\xc2\\x9b\xe4\tknown\t12\n \tunknown\t\nd\tunknown\t\n", "zero byte",
         "url0ads.example/\t\x1b\xc2\x9b\xe4|url0 |url0d"},
        {"katc -s socket 'refused!' \"$(printf 'silent\\033')\" --timeout 0.05", 1, "",
         "no reply for [silent\\x1b], no answer within", "*"},
        {"katc -s socket --json --categories names multi.example", 0, "{\"url\":\"multi.example\",\"known\":true,"
         "\"categories\":[5,44,200],\"names\":[null,\"online games\",null]}\n", "", "*"},
        {"printf 'none.example \"\\\\\\303\\244\\377\\t\\n\\nrefused!\\n' | katc -s socket --json -", 1,
         "{\"url\":\"none.example \\\"\\\\\xc3\xa4\xef\xbf\xbd\\t\",\"known\":true,\"categories\":[]}\n"
         "{\"url\":\"\",\"error\":\"an empty URL is not asked: write one URL per line\"}\n"
         "{\"url\":\"refused!\",\"error\":\"the daemon closed the connection: its log says why\"}\n", "", "*"},
        {"katc -s socket --as-helper http://u@news.example.:81/a:1 :1; katc -s socket --as-helper --keep-port news.example:81",
         0, "http://u@news.example.:81/a:1\tknown\t34\nnews.example:81\tknown\t34\n", "[:1], the URL has no host",
         "url0http://news.example/a:1|url0news.example:81"},
        // Control requests.
        {"for r in 'log_level Warning' 'timeout 010 4294967295' urls_stat reload; do katc -s socket ctl $r; done", 0, "", "",
         "ctl:log_level=" + number(2) + "|ctl:timeout=" + number(10) + number(4294967295) + "|ctl:urls_stat|ctl:assis_reload"},
        {"katc -s socket ctl save_cache --timeout .05", 1, "", "0.050 seconds: the request may still be carried out", "*"},
        // The socket.
        {"chmod 400 conf/katd.ini; KATD_DIR=. katc ads.example && KATD_DIR=$PWD/ katc ads.example", 0, adsLine + adsLine, "", "*"},
        {"KATD_DIR=. katc -s missing a b", 3, "", "no daemon answers on missing (No such file or directory)", ""},
        {"if [ -e /run/katd ]; then echo /run/katd/katd.sock >&2; exit 3; fi; katc a", 3, "", "/run/katd/katd.sock", ""},
        {"KATD_DIR=conf katc a", 2, "", "-s.", ""},
        {"KATD_DIR=empty katc a", 2, "", "no data_conn_string", ""},
        {"katc -s missing --json a b | cut -c 1-49", 0, "{\"url\":\"a\",\"error\":\"no daemon answers on missing \n", "", ""},
        {"katc -s missing --wait 0.05 ctl reload", 3, "", "no daemon", ""},
        {"{ sleep 0.05; ln -s socket late; } & katc -s late --wait 30 ads.example", 0, adsLine, "", "*"},
        {"{ sleep 0.05; ln -s socket later; } & echo ads.example | katc helper acl -s later --wait 30", 0, ads, "", "*"},
        // It prints each answer as it comes. Then the connection is lost and the socket comes back: it waits by default.
        {"ln -s socket lost; { echo ads.example!; for i in $(seq 3000); do grep -q known out && break; sleep 0.01; done; "
         "grep -q known out || echo late; rm lost; printf ads.example; sleep 0.3; ln -s socket lost; } | katc -s lost -", 0, "ads.example!\tknown\t12\n" + adsLine, "", "*"},
        // katc why.
        {"KATD_DIR=why katc why --categories names HTTP://ads.example/%61/b multi.example/x", 0,
         "HTTP://ads.example/%61/b\n  looked up as  ads.example/a/b\n"
         "  answer        category 12 (a\"b\\c): the URL begins with [ads.example/a] of why/urls\n"
         "multi.example/x\n  looked up as  multi.example/x\n"
         "  answer        category 44 (online games): its host is [multi.example] of why/domains\n", "", ""},
        {"PATH=why:$PATH; KATD_DIR=why katc why -- -x", 0,
         "-x\n  looked up as  -x\n  own lists     none: it is in neither list, katd asks its engine\n"
         "  catalogue     why/data/catalog.mdb\nfind why/data/catalog.mdb -- -x\n"
         "  shared store  asked for what the catalogue does not cover; to see its entries:\n"
         "    katcatalog find --password-file '/pw' 'redis://u@s:1' -- '-x'\n", "", ""},
        {"PATH=why:$PATH; KATD_DIR=why katc why --json --categories names HTTP://ads.example/%61/b -- -x", 0,
         "{\"url\":\"HTTP://ads.example/%61/b\",\"looked_up\":\"ads.example/a/b\",\"category\":12,\"name\":\"a\\\"b\\\\c\","
         "\"item\":\"ads.example/a\",\"match\":\"prefix\",\"list\":\"why/urls\"}\n"
         "{\"url\":\"-x\",\"looked_up\":\"-x\",\"catalog\":{\"words\":\"find --json why/data/catalog.mdb -- -x\","
         "\"catalog\":\"why/data/catalog.mdb\",\"shared\":\"katcatalog find --password-file '/pw' 'redis://u@s:1' -- '-x'\"}}\n", "", ""},
        {"KATD_DIR=empty katc why a", 0, "a\n  own lists     none: there are no lists, katd asks its engine\n"
         "  catalogue     empty/data/catalog.mdb: No such file or directory\n", "", ""},
        {"cp -r why why2; echo '1 2 3' >why2/urls; PATH=why:$PATH; KATD_DIR=why2 katc why ads.example | grep ^find", 0,
         "find why2/data/catalog.mdb -- ads.example\n", "katd refuses why2/urls", ""},
        {"cp -r why why3; ln -sf urls why3/urls; KATD_DIR=why3 katc why ads.example", 1, "", "cannot read why3/urls", ""},
        {"katc why --categories names", 2, "", "katc why: no URL is given", ""},
        {"KATD_DIR=conf katc why a", 2, "", "cannot open conf/conf/katd.ini", ""},
        {"KATD_DIR=empty katc why a >/dev/full", 1, "", "No space left", ""},
        // Input and output that fail.
        {"katc -s socket a b >/dev/full", 1, "", "No space left", "url0a"},
        {"katc -s socket a >&-", 1, "", "standard output", "url0a"},
        {"katc --help >/dev/full", 1, "", "No space left", ""},
        {"katc -s socket - <.", 1, "", "cannot read standard input (Is a directory)", ""},
        {"echo a | katc helper acl -s socket >/dev/full", 1, "", "cannot write an answer (No space left", "*"},
        {"katc helper acl --concurrency -s socket <.", 1, "", "cannot read standard input (Is a directory)", ""},
        {"{ yes none.example 2>yes.err | katc helper acl -s socket; echo $? >status; } | head -n 1; grep -x 0 status", 0,
         "ERR\n0\n", "", "*"},
        // katc helper acl.
        {helper("acl --categories names --block 12,44",
                "http://ads.example/ -\nhttp://u:p@ss@NEWS.example.:8080/a?b#c\nads.example:443 1.2.3.4 GET\n"
                "https://multi.example/\n%61ds.example\nads.example%00.x/%61%2561"), 0,
         named + "ERR\n" + named + "OK category_=5 category_=44 category_=200 name_=\"online games\" "
         "log=\"5,online games,200\" message=\"online games\"\n" + named + named, "",
         "url0http://ads.example/|url0http://NEWS.example/a?b#c|url0ads.example|url0https://multi.example/|url0ads.example|"
         "url0ads.example%00.x/%61%2561"},
        {helper("acl --categories names --allow 'last, a\"b\\c' --batch 08", "ads.example\nnews.example\nnone.example\n"), 0,
         named + "ERR category_=34 log=\"34\"\nERR\n", "", "*"},
        {helper("acl", "-\n\n:443\nu@.:81\n"), 0, noUrl + noUrl + noHost + noHost, "", ""},
        {helper("acl --url-field 3", "x %5B::1%5D:443 ads.example\nx y\n"), 0, ads + noUrl, "", "url0ads.example"},
        {helper("acl --url-field 2", "x %5B::1%5D:443 ads.example\nx ::1\n"), 0, "ERR\nERR\n", "", "url0[::1]|url0::1"},
        {helper("acl --keep-port --retry", "http://u@ads.example..:81/\n"), 0, ads, "", "url1http://ads.example:81/"},
        {helper("acl --on-unknown ok", "x.example\nnone.example\n"), 0, "OK\nERR\n", "", "*"},
        {helper("acl --on-unknown bh", "x.example\n"), 0, "BH message=\"katd has no certain answer\"\n", "", "*"},
        // A line that is too long is not asked in part.
        {"long() { printf http://ads.example/; head -c 2000000 /dev/zero | tr '\\0' x; }; "
         "{ long; printf '\\nnone.example\\n'; long; } | katc helper acl -s socket", 0, noUrl + "ERR\n" + noUrl, "", "url0none.example"},
        // katc helper rewrite.
        {helper("rewrite --categories names --block 9-12 --block 44 --redirect 'http://b.example/?c={category}&n={name}&u={url}'",
                "http://ads.example/a?b=%20\"&\xc3\xa9 1.2.3.4/x - GET myip=1\nmulti.example:443 1.2.3.4/x - CONNECT\n"
                "http://news.example/\nhttp://b.example/?c=12 -\nhttp://%61ds.example/%61\n"), 0,
         redirect + "c=12&n=a%22b%5Cc&u=http%3A%2F%2Fads.example%2Fa%3Fb%3D%2520%22%26%C3%A9\"\n" + redirect +
         "c=44&n=online%20games&u=multi.example%3A443\"\nOK\nOK\nOK\n", "", "*"},
        {helper("rewrite --allow 200 --status 307 --redirect https://b.example",
                "ads.example\nmulti.example\nx.example\nhttps://b.example/x\n"), 0,
         "OK status=307 url=\"https://b.example\"\nOK\nOK status=307 url=\"https://b.example\"\nOK\n", "", "*"},
        // Late answers are reported once.
        {"{ " + helper("acl --timeout 1 --batch 1", "silent\nads.example\nsilent\n") + "; } 2>late.err; wc -l <late.err", 0,
         late + ads + late + "1\n", "", "*"},
        // A daemon that goes is reported once, and once when it is back.
        {outlives("acl --on-failure err", ""), 0, ads + "ERR\nERR\n" + ads + "ERR\nERR\n" + ads + gone + gone, "", "*"},
        {outlives("acl --on-failure ok --concurrency", "3 "), 0,
         "3 " + ads + "3 OK\n3 OK\n3 " + ads + "3 OK\n3 OK\n3 " + ads + gone + gone, "", "*"},
        {outlives("rewrite --block 44 --on-failure redirect --redirect http://b.example", ""), 0,
         "OK\n" + page + page + "OK\n" + page + page + "OK\n" + gone + gone, "", "*"},
        // Squid has concurrency, and the helper does not know: squid must get its channel-IDs back, or it aborts.
        {helper("acl", "7 http://ads.example/ -\n"), 0,
         "7 BH message=\"the line has a number for a URL: with concurrency in squid.conf, give --concurrency\"\n", "", ""},
        {helper("acl --url-field 2", "1 1.2.3.4 ads.example\n12 1.2.3.4 ads.example\n") + " | cut -c 1-23", 0,
         "1 BH message=\"the line \n12 BH message=\"the line\n", "", ""},
        {helper("acl --concurrency", "no channel\n5 ads.example\n") + " | cut -c 1-33 | sort", 0,
         "5 OK category_=12 log=12 message=\nBH message=\"the line has no chann\n", "", "*"},
    };
    write("conf/katd.ini", "[katd]\ndata_conn_string = socket ; here\n");
    write("empty/conf/katd.ini", "[katd]\ndata_conn_string =\n");
    write("why/conf/katd.ini", "[katd]\nurls_list_path = urls\ndomains_list_path = domains\n");
    write("why/urls", "1|14\n012|ads.example/a\n");
    write("why/domains", "1|14\n044|multi.example\n");
    write("why/data/catalog.mdb", "");
    write("why/conf/catalog.ini", "[catalog]\nshared = redis://u:secret@s:1,t\nshared_password_file = /pw\n");
    write("why/katcatalog", "#!/bin/sh\n[ $2 != --json ] || set -- \"{\\\"words\\\":\\\"$*\\\"}\"\necho \"$@\"; exit 1\n");
    std::filesystem::permissions(dir / "why/katcatalog", std::filesystem::perms::owner_all);
    write("names", "\xef\xbb\xbf# lists\n\n online games = 44 # and odds\r\na\"b\\c=012\nlast = 44\nlast=44\n");
    FakeDaemon daemon(socket, answer);
    std::size_t seen = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(row.status, run(row.line));
        EXPECT_EQ(row.output, output);
        EXPECT_THAT(errors, row.errors.empty() ? testing::Matcher<std::string>("") : HasSubstr(row.errors));
        std::string asked;
        for (const Texts all = daemon.received(); seen < all.size(); ++seen)
            asked += (asked.empty() ? "" : "|") + all[seen].substr(all[seen].find(' ') + 1);
        EXPECT_EQ(row.asked == "*" ? asked : row.asked, asked);
    }
}

TEST_F(KatcTest, TheBlockPageIsNotRedirected) {
    FakeDaemon daemon(socket, answer);
    // The page, a URL of it in squid's form, and one that is not.
    const Texts pages[] = {
        {"HTTP://u@B.Example./b?u={url}", "http://b.example/b?u=x", "http://b.example/c"},
        {"http://b.example:80/b?u={url}", "http://b.example/b?u=x", "http://b.example:81/b?u=x"},
        {"http://b.example?u={url}", "http://b.example/?u=x", "http://b.example/b?u=x"},
        {"http://b.example/b#u={url}", "http://b.example/b", "http://a.example/b"},
        {"http://b.example:8080/b", "http://b.example:8080/b", "http://b.example/b"},
        {"https://b.example/b?u={url}", "b.example:443", "b.example:80"},
        {"https://b.example:8443/b", "b.example:8443", "b.example:443"}};
    for (const Texts& row : pages) {
        EXPECT_EQ(
            0, run(helper("rewrite --allow 200 --redirect '" + row[0] + "'", row[1] + "\n" + row[2] + "\n")));
        EXPECT_EQ(0U, output.find("OK\nOK status=302")) << row[0] << output;
    }
}

TEST_F(KatcTest, BadUsageIsReportedAndAsksNothing) {
    FakeDaemon daemon(socket, answer);
    for (const std::string line : {"none", "good = 2", "12 = 1", "33-34 = 1", "a, b = 1", "= 3", "x = 256", "x = 0x1"}) {
        write("bad", "good = 1\ngood=1\n" + line + "\n");
        EXPECT_EQ(2, run("katc --categories bad a")) << line;
        EXPECT_THAT(errors, HasSubstr("bad, line 3: ")) << line;
    }
    write("good", "news = 12\n");
    write("conf/katd.ini", "[katd]\ndata_conn_string = socket\n");
    const std::string tooLong(108, 'x'), acl = "|helper acl ", to = "|helper rewrite --block 5 --redirect http://";
    std::istringstream lines(
        "-r|--|-x a|--unknown|-s|-r helper|-s " + tooLong + " a|ctl|ctl restart|ctl reload now|ctl reload urls_stat|"
        "-r ctl reload|a ctl reload|ctl reload -- a|ctl log_level|ctl log_level verbose|ctl log_level 3|ctl timeout 1|"
        "ctl timeout 1 2 3|ctl timeout 1 4294967296|ctl timeout -1 1|ctl timeout 1 +1|ctl timeout 1 0x10|ctl timeout 1 ''|"
        "--json ctl reload|ctl reload --categories good|--as-helper ctl reload|--keep-port a|--timeout -1 a|--timeout 1e3 a|"
        "--timeout . a|--wait inf a|--wait 4000001 a|--wait '' a|--categories missing a|--categories . a|why --categories missing a|helper |helper no" +
        acl + "more" + acl + "--no-such" + acl + "--block 256" + acl + "--block 9-5" + acl + "--categories good --block games" +
        acl + "--block ," + acl + "--block ''" + acl + "--block 1 --allow 2" + acl + "--categories missing" + acl +
        "--url-field 0" + acl + "--concurrency --connections 65" + acl + "--connections 2" + acl + "--batch 0" + acl +
        "--batch 0x10" + acl + "--timeout 0x10" + acl + "--wait soon" + acl + "--on-failure redirect" + acl +
        "--on-unknown no" + acl + "--redirect http://b.example/" + acl + "--status 301" + acl + "-s " + tooLong +
        "|helper rewrite --redirect http://b.example/|helper rewrite --block 5|helper rewrite --block 5 --redirect b.example" +
        to + "'b.example/ x'" + to + "{url}" + to + "b.example{url}/" + to + "b.example/{no}" + to + "b.example/{url" + to +
        "/" + to + ":80/" + to + "b.example --status 300");
    for (std::string arguments; std::getline(lines, arguments, '|');) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(2, run("echo ads.example | KATD_DIR=. katc " + arguments));
        EXPECT_EQ(0U, errors.find(arguments.find("helper ") == 0 ? "katc helper: " : "katc: ")) << errors;
        EXPECT_EQ("", output);
    }
    EXPECT_EQ(Texts(), daemon.received());
    for (const std::string line : {"katc --help", "katc -h", "katc --version", "katc helper --help", "katc helper --version"}) {
        EXPECT_EQ(0, run(line));
        EXPECT_THAT(output, HasSubstr("katc"));
    }
}
// clang-format on

TEST_F(KatcTest, ManyLinesKeepTheirOrder) {
    FakeDaemon daemon(
        socket, [](const std::string& message) { return reply(1, message.substr(message.size() - 1)); });
    std::string lines, plain, acl;
    for (std::size_t i = 0; i < 20000; ++i) {
        const std::string url = std::string(i % 5000 == 7 ? 200000 : i % 300, 'x') + std::to_string(i);
        const std::string category = std::to_string(url.back());
        lines += url + "\n";
        plain += url + "\tknown\t" + category + "\n";
        acl += "OK category_=" + category + " log=" + category + " message=\"category " + category + "\"\n";
    }
    write("lines", lines);
    EXPECT_EQ(0, run("katc -s socket - <lines")) << errors;
    EXPECT_TRUE(plain == output);
    EXPECT_EQ(0, run("katc helper acl -s socket <lines")) << errors;
    EXPECT_TRUE(acl == output);
    EXPECT_EQ(40000U, daemon.received().size());
}

TEST_F(KatcTest, ChannelsAreServedSideBySide) {
    const Home home(Settings{{"ctengine_query_timeout", "0"}});
    home.rules("host none.example final\nhost hung.example hang\n");
    Daemon daemon(home);
    ASSERT_TRUE(daemon.waitUntilServing());
    const std::string path(9000, 'x'),
        channelOnly = " BH message=\"the line has no URL where --url-field says, or is too long\"";
    std::string lines = "0 http://hung.example/\n";
    std::set<std::string> expected, received;
    for (int i = 1; i <= 600; ++i) {
        const std::string channel = std::to_string(i);
        const bool isListed = i % 3 != 0;
        lines += channel + " " +
                 (i == 150   ? std::string(3000000, 'x')
                  : isListed ? "ads.example/" + path
                             : "none.example") +
                 " -\n";
        expected.insert(channel +
                        (i == 150    ? channelOnly
                         : !isListed ? " OK"
                                     : " OK status=302 url=\"http://b.example/ads.example%2F" + path + "\""));
    }
    write("lines", lines);
    // The engine never answers for the first line. The other answers are not read at first, so that the
    // threads have to write them in pieces.
    std::thread end([&] {
        EXPECT_TRUE(eventually([&] {
            const std::string all = readFile(dir / "answers");
            return std::count(all.begin(), all.end(), '\n') == 600;
        }));
        daemon.kill(SIGKILL);
        writeFile(dir / "end", "");
    });
    EXPECT_EQ(0, run("{ cat lines; until [ -e end ]; do sleep 0.02; done; } | katc helper rewrite --block 12 "
                     "--redirect "
                     "'http://b.example/{url}' --concurrency --connections 5 --batch 1 --timeout 0 -s " +
                     home.socketPath() + " 2>messages | { sleep 0.3; cat >answers; }"));
    end.join();
    std::istringstream answers(readFile(dir / "answers"));
    for (std::string line; std::getline(answers, line);)
        received.insert(line.rfind("0 BH", 0) == 0 ? "0 BH" : line);
    expected.insert("0 BH");
    EXPECT_TRUE(expected == received);
}

}  // namespace
