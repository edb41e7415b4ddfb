// Files that are damaged, cut, or changed while they are read.

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "catalog/CatalogFixture.h"

using namespace catalog;

namespace {

using katd_test::readFile;
using katd_test::writeFile;

class CatalogFileTest : public CatalogFixture {
protected:
    void build(unsigned hosts) {
        Builder builder;
        Url url;
        for (unsigned i = 0; i < hosts; ++i) {
            const std::string host = "h" + std::to_string(i * 7919 % hosts) + ".example";
            readEntry(i % 5 == 0 ? host + "/p" + std::to_string(i) : host, &url);
            builder.add(url, i % 60, 1);
        }
        readEntry("203.0.113.0/24", &url);
        builder.add(url, 5, 1);
        write(&builder);
    }

    // Asks much of the file. True if nothing was found to be damaged; `covered` is then the number of URLs
    // that entries cover.
    bool askAll(const std::shared_ptr<Catalog>& catalog) {
        auto reader = std::make_unique<Reader>(catalog);
        const auto answer = std::make_unique<Answer>();
        bool good = true;
        covered = 0;
        Url url;
        for (unsigned i = 0; i < 400; ++i) {
            readUrl(i % 7 == 0 ? "203.0.113." + std::to_string(i % 256)
                               : "www.h" + std::to_string(i * 31) + ".example/p" + std::to_string(i) + "/x",
                    &url);
            if (reader->classify(url, answer.get()) == Reader::done) {
                covered += answer->covered ? 1 : 0;
                continue;
            }
            good = false;
            reader = std::make_unique<Reader>(catalog);
        }
        return good;
    }

    // Whether the file could be opened, and all of it read.
    bool isGood(const std::string& bytes) {
        writeFile(path, bytes);
        std::string failure;
        const auto catalog = Catalog::open(path, &failure);
        if (!catalog) {
            EXPECT_EQ(0U, failure.find("catalogue " + path + ": ")) << failure;
            return false;
        }
        return askAll(catalog);
    }

    unsigned covered = 0;
};

TEST_F(CatalogFileTest, whatIsNoCatalogueIsRefused) {
    std::string failure;
    EXPECT_FALSE(Catalog::open(folder.path(), &failure));
    EXPECT_EQ("catalogue " + folder.path() + ": not a regular file", failure);
    EXPECT_FALSE(Catalog::open(path, &failure));
    EXPECT_EQ("catalogue " + path + ": No such file or directory; make one with katcatalog import", failure);
    EXPECT_FALSE(isGood(""));
    EXPECT_FALSE(isGood("0.0.0.0 ads.example\n"));
    EXPECT_FALSE(isGood(std::string(100000, '\0')));

    MDB_env* environment = nullptr;
    std::filesystem::remove(path);
    mdb_env_create(&environment);
    ASSERT_EQ(0, mdb_env_open(environment, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK, 0644));
    mdb_env_close(environment);
    EXPECT_FALSE(Catalog::open(path, &failure));
    EXPECT_NE(failure.npos, failure.find("not a catalogue, of another version, or damaged")) << failure;
}

// A second thread sorts meanwhile, what one Builder has divided and another one has not.
TEST(Builder, manyAreInOrderWhileTheyAreTaken) {
    std::map<std::string, std::vector<Pair>> expected;
    Builder builder;
    Builder later;
    later.beginList(1);
    std::mt19937 random(1);
    Url url;
    for (unsigned i = 0; i < 60000; ++i) {
        const std::string name = std::to_string(random() % 30000);
        readEntry(i % 2 == 0 ? name + ".net" : "x" + name + ".common.org", &url);
        const Pair pair{1, static_cast<std::uint16_t>(i % 5)};
        (i < 59000 ? builder : later).add(url, pair.category, pair.source);
        auto& pairs = expected[hostKey(url)];
        if (std::find(pairs.begin(), pairs.end(), pair) == pairs.end()) pairs.push_back(pair);
    }
    builder.take(&later);
    builder.sort();
    Builder::Item item;
    Builder::Result result;
    for (const auto& [key, pairs] : expected) {
        ASSERT_TRUE(builder.next(&item, &result));
        ASSERT_EQ(key, item.key);
        ASSERT_EQ(pairs, item.pairs);
    }
    EXPECT_FALSE(builder.next(&item, &result));
}

TEST_F(CatalogFileTest, cutFilesAreRefused) {
    build(3000);
    const std::string whole = readFile(path);
    EXPECT_TRUE(isGood(whole));
    for (std::size_t size = 0; size < whole.size(); size += 4096) {
        SCOPED_TRACE(size);
        EXPECT_FALSE(isGood(whole.substr(0, size)));
        EXPECT_FALSE(isGood(whole.substr(0, size + 100)));
    }
}

TEST_F(CatalogFileTest, damagedBytesAreSurvived) {
    KATD_NEEDS_SYNCHRONOUS_SIGNALS;
    build(3000);
    const std::string whole = readFile(path);
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n)(random); };
    unsigned noticed = 0;
    constexpr unsigned rounds = 400;
    for (unsigned round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        std::string bytes = whole;
        // A third in the meta pages, a third in the heads of pages, the rest anywhere.
        const std::size_t pages = bytes.size() / 4096;
        for (unsigned n = 0; n < 1 + round / 20; ++n) {
            const std::size_t place = round % 3 == 0   ? upTo(2 * 4096 - 1)
                                      : round % 3 == 1 ? upTo(pages - 1) * 4096 + upTo(63)
                                                       : upTo(bytes.size() - 1);
            bytes[place] = static_cast<char>(upTo(255));
        }
        if (!isGood(bytes)) ++noticed;
    }
    EXPECT_LT(rounds / 10, noticed);
    EXPECT_GT(rounds, noticed);
}

// A page that a disk has lost, or written to another place, must not read as "not covered".
TEST_F(CatalogFileTest, lostPagesAreNoticed) {
    KATD_NEEDS_SYNCHRONOUS_SIGNALS;
    build(3000);
    {
        const auto update = openUpdate();
        for (unsigned i = 100; i < 200; ++i) {
            put(update.get(), "h" + std::to_string(i * 31) + ".example", 1);
            // The filters are not on the header's page.
            update->setSource(static_cast<std::uint16_t>(i), {std::string(100, 'x'), 0, 0});
        }
        update->commit();
    }
    const std::string whole = readFile(path);
    ASSERT_TRUE(isGood(whole));
    const unsigned all = covered;
    unsigned noticed = 0;
    constexpr std::size_t size = 4096;
    for (std::size_t page = 0; page < whole.size(); page += size) {
        for (const std::string& lost : {std::string(size, '\0'), whole.substr(3 * size, size)}) {
            if (isGood(std::string(whole).replace(page, size, lost))) {
                EXPECT_EQ(all, covered) << page;
            } else {
                ++noticed;
            }
        }
    }
    EXPECT_LT(whole.size() / size, noticed);
}

TEST_F(CatalogFileTest, fileCutUnderAReaderIsNoticed) {
    KATD_NEEDS_SYNCHRONOUS_SIGNALS;
    build(3000);
    const std::string whole = readFile(path);
    const auto catalog = openCatalog();
    EXPECT_TRUE(askAll(catalog));
    for (const std::size_t size : {whole.size() / 2, std::size_t{4096}, std::size_t{0}}) {
        std::filesystem::resize_file(path, size);
        EXPECT_FALSE(askAll(catalog)) << size;
    }
    std::ofstream(path, std::ios::binary | std::ios::in) << whole;
    EXPECT_TRUE(askAll(catalog));
}

// Each version has one category at all entries of a name's way up: a mixture of versions would have two.
TEST_F(CatalogFileTest, readersNeverSeeTwoVersions) {
    const char* const names[] = {"example", "b.example", "a.b.example", "a.b.example/x", "a.b.example/x/y"};
    const auto commit = [&](unsigned version) {
        const auto update = openUpdate();
        for (const char* const name : names)
            put(update.get(), name, version);
        Url url;
        // Others come and go, so that pages are freed and used again.
        for (unsigned i = 0; i < 40; ++i) {
            readEntry("h" + std::to_string((version * 13 + i) % 2000) + ".example", &url);
            EntryKeys keys;
            entryKeys(url, &keys);
            if (!update->erase(keys.own, keys.host)) update->put(url, Entry());
        }
        update->commit();
    };
    build(2000);
    commit(1);
    const auto catalog = openCatalog();
    std::atomic<bool> stop{false};
    std::atomic<unsigned> mixed{0}, damagedCount{0};
    std::vector<std::thread> readers;
    for (unsigned n = 0; n < 3; ++n) {
        readers.emplace_back([&] {
            auto reader = std::make_unique<Reader>(catalog);
            const auto answer = std::make_unique<Answer>();
            Url url;
            readUrl("http://a.b.example/x/y/z", &url);
            while (!stop) {
                if (reader->classify(url, answer.get()) != Reader::done) {
                    ++damagedCount;
                    reader = std::make_unique<Reader>(catalog);
                } else if (answer->count != 1) {
                    ++mixed;
                }
            }
        });
    }
    for (unsigned version = 2; version < 150; ++version)
        commit(version);
    stop = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(0U, mixed);
    EXPECT_EQ(0U, damagedCount);
}

// A look-up that is stopped while commits pass by.
struct Stopped {
    std::atomic<bool> waits{false}, goesOn{false};
    unsigned restarts = 0;
    std::uint16_t seen[8] = {};
    unsigned count = 0;

    static bool see(void* context, const Covering& covering) {
        auto* const self = static_cast<Stopped*>(context);
        self->waits = true;
        while (!self->goesOn) {
        }
        if (self->count < 8) self->seen[self->count++] = covering.value->pair(0).category;
        return true;
    }
    static void restart(void* context) {
        auto* const self = static_cast<Stopped*>(context);
        ++self->restarts;
        self->count = 0;
    }
};

TEST_F(CatalogFileTest, overtakenLookUpsBeginAnew) {
    const auto commit = [&](unsigned version) {
        const auto update = openUpdate();
        for (const char* const name : {"a.example", "b.a.example"})
            put(update.get(), name, version);
        update->commit();
    };
    for (const unsigned commits : {0U, 1U, 2U, 5U}) {
        SCOPED_TRACE(commits);
        build(100);
        commit(1000);
        const auto catalog = openCatalog();
        Stopped stopped;
        std::thread thread([&] {
            Reader reader(catalog);
            Url url;
            readUrl("b.a.example", &url);
            EXPECT_EQ(Reader::done, reader.visit(url, Stopped::see, Stopped::restart, &stopped));
        });
        while (!stopped.waits)
            std::this_thread::yield();
        for (unsigned i = 1; i <= commits; ++i)
            commit(1000 + i);
        stopped.goesOn = true;
        thread.join();
        EXPECT_EQ(commits < 2 ? 0U : 1U, stopped.restarts);
        ASSERT_EQ(2U, stopped.count);
        // Up to one version later it may finish what it began.
        EXPECT_EQ(commits < 2 ? 1000U : 1000U + commits, stopped.seen[0]);
        EXPECT_EQ(stopped.seen[0], stopped.seen[1]);
    }
}

TEST_F(CatalogFileTest, oneUpdateAtATime) {
    build(10);
    const auto first = openUpdate();
    std::string failure;
    EXPECT_FALSE(Update::open(path, &failure));
    EXPECT_NE(failure.npos, failure.find("another program is changing or examining it")) << failure;
}

}  // namespace
