// katcatalog push and a real redis-server.
#ifdef KATD_HAVE_HIREDIS
#include <random>
#include <thread>

#include "catalog/SharedGroups.h"
#include "katcatalog/Store.h"
#include "listreader/Failure.h"
#include "support/Client.h"
#include "support/Daemon.h"
#include "support/RedisServer.h"
#include "support/Rounds.h"
#include "support/ShellTest.h"

using namespace katd_test;

namespace {

using testing::HasSubstr;
using Contents = std::map<std::string, std::string>;

class PushTest : public ShellTest {
protected:
    PushTest() : ShellTest(KATCATALOG_BINARY) { connect(); }

    void connect() {
        katcatalog::Arguments arguments;
        arguments.catalog = redis.address();
        store = std::make_unique<katcatalog::Store>(arguments);
    }
    int push(const std::string& arguments) {
        return run("katcatalog push --category none " + redis.address() + " " + arguments);
    }
    std::string get(std::string_view key) {
        return std::string(katcatalog::textOf(*store->ask({"GET", key})));
    }

    // All that the store holds but its version.
    Contents contents() {
        Contents all;
        const katcatalog::Reply keys = store->ask({"KEYS", "*"});
        katcatalog::Words get{"MGET"};
        for (std::size_t i = 0; i < keys->elements; ++i)
            get.push_back(katcatalog::textOf(*keys->element[i]));
        if (keys->elements == 0) return all;
        const katcatalog::Reply values = store->ask(get);
        for (std::size_t i = 1; i < get.size(); ++i)
            all[std::string(get[i])] = katcatalog::textOf(*values->element[i - 1]);
        all.erase(std::string(catalog::sharedMetaKey));
        return all;
    }
    // What it is to hold, found in a simpler way from the catalogue of the same list.
    Contents wanted(const std::string& list) {
        EXPECT_EQ(0, run("katcatalog import -q --category none -o c.mdb " + list)) << errors;
        catalog::SharedGroups groups;
        std::string failure;
        const auto catalogue = catalog::Update::open(dir / "c.mdb", &failure, catalog::Update::reading);
        catalogue->forEach([&](std::string_view key, const catalog::Value& value) {
            std::vector<std::uint16_t> categories;
            for (std::size_t i = 0; i < value.pairCount; ++i)
                categories.push_back(value.pair(i).category);
            groups.add(key, (value.flags & catalog::isInstead) != 0, categories);
        });
        return groups.records();
    }
    void writeRandomList(unsigned size) {
        const auto upTo = [this](unsigned n) {
            return std::uniform_int_distribution<unsigned>(0, n)(random);
        };
        std::string text;
        for (unsigned i = 0; i < size; ++i) {
            const std::string host = "h" + std::to_string(upTo(size / 4)) + ".example";
            const std::string category = std::to_string(upTo(2)) + "|";
            const std::string address = category + "10.0." + std::to_string(upTo(size / 9));
            const char* const paths[] = {"/a", "/b/c", "/a?q", "/b/c?q", "/a/d1", "/b/c/d2"};
            const std::string path = category + host + (upTo(3) == 0 ? ":8080" : "") + paths[upTo(5)];
            const std::string lines[] = {"@@||" + host + "^",
                                         address + (upTo(1) == 0 ? ".0/24" : ".1/x"),
                                         path,
                                         path,
                                         category + host,
                                         category + "www." + host};
            text += lines[upTo(5)] + "\n";
        }
        write("list", text);
    }

    RedisServer redis;
    std::unique_ptr<katcatalog::Store> store;
    std::mt19937 random{std::random_device{}()};
};

TEST_F(PushTest, leavesWhatTheListsSayWhateverWasThere) {
    store->ask({"SET", "other", "stays"});
    for (int round = 0; round < 10; ++round) {
        const Contents before = contents();
        const std::string version = get(catalog::sharedMetaKey);
        writeRandomList(round == 9 ? 0 : round % 3 == 0 ? 10000 : 100);
        Contents expected = wanted("list");
        expected["other"] = "stays";
        store->ask({"RPUSH", "katd:hforeign", "a list"});
        if (before.size() > 1) store->ask({"SET", before.begin()->first, "damaged"});
        ASSERT_EQ(0, push("list")) << errors;
        ASSERT_TRUE(expected == contents()) << round;
        const std::string changed = get(catalog::sharedMetaKey);
        ASSERT_FALSE(catalog::sharedVersion(changed).empty());
        ASSERT_NE(version, changed);
        ASSERT_EQ(0, push("--json list"));
        ASSERT_THAT(output, HasSubstr("\"keys_added\": 0,\n  \"keys_changed\": 0,\n  \"keys_removed\": 0"));
        ASSERT_EQ(changed, get(catalog::sharedMetaKey));
    }
}

TEST_F(PushTest, findAndStatSayOfTheStoreWhatTheySayOfAFile) {
    writeRandomList(2998);
    run("printf '%s\\n' '@@||www.h1.example^' '1|h1.example' >>list");
    ASSERT_EQ(0, push("list")) << errors;
    ASSERT_EQ(0, run("katcatalog import -q --category none -o c.mdb list")) << errors;
    run("sed -E 's/^@@..|^.[|]//; s/\\^//; p; s/^h/x.h/; s#$#/d1#' list >urls; echo '2001:db8::1/x' >>urls");
    // Without what a store does not have.
    const auto found = [&](const std::string& catalogue, const std::string& more) {
        run("katcatalog find --json " + catalogue + " - <urls" + more);
        return output;
    };
    const std::string expected = found("c.mdb", "| sed -E 's/,\"list\":\"list\",\"lines\":3000//g'");
    EXPECT_THAT(expected, HasSubstr("\"counts\":false"));
    EXPECT_EQ(expected, found(redis.address(), ""));
    const auto counts = [&](const std::string& catalogue) {
        EXPECT_EQ(0, run("katcatalog stat --json " + catalogue)) << errors;
        return output.substr(output.find("  \"kinds\""), output.rfind("  }") - output.find("  \"kinds\""));
    };
    EXPECT_EQ(counts("c.mdb").substr(0, counts(redis.address()).size()), counts(redis.address()));
    store->ask({"SET", "katd:hexample", "foreign"});
    EXPECT_EQ(1, run("katcatalog find " + redis.address() + " host.example"));
    EXPECT_EQ("host.example\n  looked up as  host.example\n  asked         " + redis.address() +
                  ", which keeps no lists and no names of categories\n"
                  "  answer        none: no entry covers it\n",
              output);
    EXPECT_THAT(errors, HasSubstr("it has foreign or damaged records"));
}

TEST_F(PushTest, theNextOneRepairsWhatACutOneLeft) {
    writeRandomList(8000);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0, push("list"));
    const std::chrono::duration<double> whole = std::chrono::steady_clock::now() - start;
    for (int round = 0; round < rounds(8, 200); ++round) {
        writeRandomList(8000);
        const bool killsStore = round % 4 == 3;
        const bool stopsStore = round % 4 == 2;
        const bool interrupts = stopsStore || round % 4 == 1;
        const double delay = std::uniform_real_distribution<>(whole.count() / 2, 1.1 * whole.count())(random);
        const Contents before = contents();
        const std::string version = get(catalog::sharedMetaKey);
        std::thread end([&] {
            if (!killsStore && !stopsStore) return;
            const auto by = std::chrono::steady_clock::now() + std::chrono::duration<double>(delay);
            while (std::chrono::steady_clock::now() < by &&
                   (killsStore || get(catalog::sharedLockKey).empty()))
                usleep(500);
            killsStore ? redis.kill() : redis.stop();
        });
        const int status =
            run((killsStore ? ""
                            : std::string("timeout --preserve-status -s ") + (interrupts ? "INT " : "KILL ") +
                                  std::to_string(stopsStore ? delay + 0.1 : delay)) +
                " katcatalog push --category none " + redis.address() + " list");
        end.join();
        if (killsStore) {
            ASSERT_TRUE(status == 0 || (status == 3 && errors.find("store ") != errors.npos)) << errors;
            redis.start();
            connect();
        }
        if (stopsStore) redis.resume();
        ASSERT_TRUE(!interrupts || status == 0 || status == 128 + SIGINT) << status << errors;
        ASSERT_TRUE(!interrupts || stopsStore || get(catalog::sharedLockKey).empty());
        store->ask({"DEL", catalog::sharedLockKey});  // as if half a minute had passed
        const Contents left = contents();
        ASSERT_TRUE(status != 0 || killsStore || left == wanted("list"));
        const bool isTouched = left != before;
        ASSERT_TRUE(!isTouched || killsStore || version != get(catalog::sharedMetaKey) ||
                    left.count(std::string(catalog::sharedUnfinishedKey)) != 0);
        ASSERT_EQ(0, push("list")) << errors;
        ASSERT_TRUE(wanted("list") == contents());
        ASSERT_TRUE(!isTouched || version != get(catalog::sharedMetaKey));
    }
    // Cut between its last change and its end.
    const std::string version = get(catalog::sharedMetaKey);
    store->ask({"SET", catalog::sharedUnfinishedKey, "1"});
    ASSERT_EQ(0, push("list"));
    EXPECT_NE(version, get(catalog::sharedMetaKey));
    EXPECT_TRUE(wanted("list") == contents());
}

TEST_F(PushTest, twoAtOnceDoNotMix) {
    writeRandomList(10000);
    store->ask({"SET", catalog::sharedLockKey, "cut", "PX", "700"});
    EXPECT_EQ(0, push("list")) << errors;
    store->ask({"SET", catalog::sharedLockKey, "without end"});
    EXPECT_EQ(3, push("list"));
    EXPECT_THAT(errors, HasSubstr("another push is under way"));
    store->ask({"DEL", catalog::sharedLockKey});

    store->lock();
    store->change({{"SET", "katd:hexample", "1"}});
    for (const char* const other : {"SET katd:pushing other", "DEL katd:pushing"}) {
        ASSERT_EQ(0, run("redis-cli -s " + redis.socketPath() + " " + other));
        EXPECT_THROW(store->change({{"SET", "katd:hexample", "2"}}), listreader::Failure) << other;
        connect();
        EXPECT_EQ("1", get("katd:hexample"));
        store->ask({"DEL", catalog::sharedLockKey});
        store->lock();
    }
    store->unlock({});

    Contents states[2];
    for (const char* const list : {"0=hosts", "1=hosts"}) {
        run("seq -f h%g.example 20000 >hosts");
        states[*list - '0'] = wanted(list);
    }
    for (int round = 0; round < 5; ++round) {
        const std::string command = "katcatalog push -q " + redis.address();
        run(command + " 0=hosts & " + command + " 1=hosts; first=$?; wait $!; echo $first $?");
        ASSERT_THAT(output, testing::AnyOf("0 0\n", "0 3\n", "3 0\n"));
        const Contents state = contents();
        ASSERT_TRUE((state == states[0] && output != "0 3\n") || (state == states[1] && output != "3 0\n"))
            << output;
    }
}

TEST_F(PushTest, katdGetsALateAnswerByItsOwnRetry) {
    write("list", "300|example.com\n5|example.com\n");
    ASSERT_EQ(0, push("list")) << errors;
    const Home home({{"query_retry_times", "3000"}, {"query_retry_interval", "10"}});
    ASSERT_EQ(0, run("katcatalog import -q -o " + home / "data/catalog.mdb /dev/null")) << errors;
    writeFile(home / "conf/catalog.ini", "[catalog]\nshared = " + redis.address() + "\nshared_wait = 1\n");
    const char* const libraries = std::getenv("LD_LIBRARY_PATH");
    Daemon katd(home, {},
                {{"LD_LIBRARY_PATH",
                  std::string(CATALOG_ENGINE_FOLDER ":") + (libraries != nullptr ? libraries : "")}});
    ASSERT_TRUE(katd.waitUntilServing());
    Client patient(home.socketPath());
    Client client(home.socketPath());
    using Categories = std::vector<unsigned>;
    redis.stop();
    ASSERT_TRUE(patient.send(request("url1y.example.com")));
    EXPECT_EQ(Categories(), client.ask("x.example.com").value().categories);
    redis.resume();
    EXPECT_EQ((Categories{300 % 256, 5}), patient.receive().value().categories);
    redis.kill();
    EXPECT_EQ((Categories{300 % 256, 5}), client.ask("y.example.com").value().categories);
    EXPECT_EQ(Categories(), client.ask("z.example.com").value().categories);
}

TEST_F(PushTest, whatIsWrongWithTheStoreHasASentence) {
    RedisServer locked({"--requirepass", "secret"});
    write("list", "1|a.example\n");
    write("password", "secret\n");
    write("wrong", "public\n");
    EXPECT_EQ(0, run("katcatalog push -q --password-file password " + locked.address() + " list")) << errors;
    std::string secret = "redis://:secret@" + locked.socketPath();
    EXPECT_EQ(0, run("katcatalog push " + secret + " list"));
    EXPECT_EQ(output.npos, output.find("secret"));
    const std::string settings = "redis-cli -s " + redis.socketPath() + " ";
    const std::string here = "katcatalog push -q " + redis.address() + " list";
    const std::tuple<std::string, int, const char*> rows[] = {
        {"katcatalog push -q " + locked.address() + " list", 3, "NOAUTH"},
        {"katcatalog stat --password-file password " + locked.address(), 0, ""},
        {"katcatalog stat " + locked.address(), 3, "NOAUTH"},
        {"katcatalog find " + redis.address() + " a", 3,
         "it holds no catalogue; make one with katcatalog push"},
        {"katcatalog push -q --password-file wrong " + locked.address() + " list", 3, "WRONGPASS"},
        {"katcatalog push -q http://store.example list", 2, "the store's address is wrong"},
        {"katcatalog push -q redis://a.example,b.example list", 2, "name one host"},
        {"katcatalog push -q redis:///none list", 3, "store redis:///none: No such file or directory"},
        {here + " --min-items 2", 1, "1 entries, fewer than 2"},
        {settings + "config set maxmemory 1; " + here, 3, "OOM command not allowed"},
        {settings + "config set maxmemory 0; " + settings + "replicaof 127.0.0.1 1; " + here, 3, "READONLY"},
        {settings + "replicaof no one; " + settings + "del katd:pushing; " + here, 0, ""},
        {settings + "set katd:catalogue foreign; " + here, 3,
         "the key katd:catalogue is not that of a catalogue"},
        {settings + "del katd:catalogue; " + settings + "lpush katd:catalogue foreign; " + here, 3,
         "WRONGTYPE"},
    };
    for (const auto& [line, status, error] : rows) {
        EXPECT_EQ(status, run(line)) << line << errors;
        EXPECT_THAT(errors, HasSubstr(error)) << line;
    }
}

}  // namespace
#endif
