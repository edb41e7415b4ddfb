// The catalogue engine behind the interface that katd calls.
#include <csignal>

#include "engine/catalog/EngineFixture.h"

using namespace catalog;

namespace {

using katd_test::readFile;
using katd_test::writeFile;

class CatalogEngineTest : public katd_test::EngineFixture {};

TEST_F(CatalogEngineTest, answersTheUnionDownToAnException) {
    // clang-format off
    replace({{"example.com", 300}, {"example.com", 5}, {"www.example.com/ads", 44}, {"www.example.com/ads", 5},
             {"good.www.example.com", Builder::noCategory, true}, {"203.0.113.0/24", 7},
             {"known.test", Builder::noCategory}});
    create();
    const std::pair<const char*, const char*> rows[] = {
        {"http://example.com/", "300,5"}, {"example.com:443", "300,5"},
        {"https://a.b.c.example.com/adsl", "300,5"}, {"https://x.www.example.com/ads?x", "44,5,300"},
        {"https://x.good.www.example.com/ads", "final"}, {"http://203.0.113.9", "7"},
        {"http://known.test/", "final"}, {"http://other.test/", "final"}, {"com", "final"}, {"::::", "final"},
        {"", "final"},
    };
    // clang-format on
    for (const auto& [url, expected] : rows)
        EXPECT_EQ(expected, ask(url)) << url;
    EXPECT_EQ(nullptr, CSDKMain_ClassifyUrl(engine, nullptr));
    EXPECT_EQ("1 null argument", lastFailure());
}

TEST_F(CatalogEngineTest, noGoodFileAtTheStartIsAFailureWithASentence) {
    EXPECT_EQ(nullptr, CSDKMain_Create(""));
    EXPECT_EQ("5 catalogue " + path + ": No such file or directory; make one with katcatalog import",
              lastFailure());
    writeFile(path, "what");
    EXPECT_EQ(nullptr, CSDKMain_Create(""));
    EXPECT_EQ("5 catalogue " + path +
                  ": not a catalogue of this machine's word size; recreate it with katcatalog import",
              lastFailure());
    std::filesystem::remove(folder / "catalog.ini");
    EXPECT_EQ(nullptr, CSDKMain_Create(""));
    EXPECT_EQ("5 cannot read the settings of the catalogue engine, " + folder / "catalog.ini" +
                  ": No such file or directory",
              lastFailure());
}

TEST_F(CatalogEngineTest, newVersionsAreSeenAndBadOnesRefused) {
    replace({{"a.example", 1}});
    create();
    EXPECT_EQ("1", ask("www.a.example"));
    replace({{"a.example", 2}});
    EXPECT_EQ("2", askUntil("www.a.example", "2"));

    katd_test::Messages messages(folder / "messages");
    const std::string good = readFile(path);
    writeFile(path + ".new", good.substr(0, good.size() / 2));
    std::filesystem::rename(path + ".new", path);
    EXPECT_TRUE(messages.waitFor("used\n"));
    EXPECT_EQ("katd-engine-catalog: catalogue " + path +
                  ": the file is cut; recreate it with katcatalog import; the old one is still used\n",
              messages.text());
    EXPECT_EQ("2", ask("www.a.example"));

    replace({{"a.example", 3}});
    EXPECT_EQ("3", askUntil("www.a.example", "3"));
    const auto update = openUpdate();
    put(update.get(), "www.a.example", 4);
    EXPECT_EQ("3", ask("www.a.example"));
    update->commit();
    EXPECT_EQ("4,3", ask("www.a.example"));
}

TEST_F(CatalogEngineTest, growthBeyondTheMappingIsFollowed) {
    replace({{"a.example", 1}});
    create();
    EXPECT_EQ("1", ask("www.a.example"));
    // More than the engine maps beyond the file's size.
    const auto update = openUpdate();
    Entry entry;
    for (std::uint16_t i = 0; i < maxEntryCategories; ++i)
        entry.pairs.push_back({i, 1});
    for (unsigned i = 0; i < 70000; ++i) {
        Url url;
        readEntry("h" + std::to_string(i) + ".example", &url);
        update->put(url, entry);
    }
    update->commit();
    EXPECT_EQ("1", ask("www.a.example"));
    EXPECT_EQ(0U, ask("h69999.example").find("0,1,2"));
}

TEST_F(CatalogEngineTest, cutUnderItItFailsAndGoesOnWithTheNextFile) {
    KATD_NEEDS_SYNCHRONOUS_SIGNALS;
    replace({{"a.example", 1}});
    create();
    EXPECT_EQ("1", ask("a.example"));
    testing::internal::CaptureStderr();
    std::filesystem::resize_file(path, 4096);
    const std::string failure =
        "catalogue " + path + ": the file is damaged or was cut; recreate it with katcatalog import";
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ("5 " + failure, ask("a.example"));
    EXPECT_EQ("katd-engine-catalog: " + failure + "\n", testing::internal::GetCapturedStderr());
    // Its page of records was overwritten.
    for (const std::uint16_t flags : {std::uint16_t{1}, std::uint16_t{2}, std::uint16_t{0xffff}}) {
        SCOPED_TRACE(flags);
        replace({{"a.example", flags}});
        EXPECT_EQ(std::to_string(flags), askUntil("a.example", std::to_string(flags)));
        std::string page(4096, '\x55');
        std::memcpy(&page[sizeof(std::size_t) + 2], &flags, sizeof flags);
        std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
            .seekp(8192)
            .write(page.data(), 4096);
        EXPECT_EQ("5 " + failure, ask("a.example"));
        EXPECT_EQ("5 " + failure, ask("b.example"));
    }
    replace({{"a.example", 2}});
    EXPECT_EQ("2", askUntil("a.example", "2"));
}

// Under a sanitizer these signals are its own.
#ifndef KATD_SANITIZED
TEST_F(CatalogEngineTest, faultsElsewhereStillEndTheProcess) {
    replace({{"a.example", 1}});
    create();
    EXPECT_EXIT(*static_cast<volatile int*>(nullptr) = 1, testing::KilledBySignal(SIGSEGV), "");
    EXPECT_EXIT(raise(SIGBUS), testing::KilledBySignal(SIGBUS), "");
}
#endif

TEST_F(CatalogEngineTest, theCacheFileIsValidAndEmpty) {
    replace({{"a.example", 1}});
    create();
    const std::string cache = folder / "cache";
    EXPECT_EQ(0, CSDKMain_SaveWebSecCache(engine, cache.c_str()));
    EXPECT_EQ(0, CSDKMain_LoadWebSecCache(engine, cache.c_str()));
    writeFile(cache, readFile(cache) + "x");
    EXPECT_NE(0, CSDKMain_LoadWebSecCache(engine, cache.c_str()));
    EXPECT_EQ("3 " + cache + " is no cache file of this engine, or it is cut or damaged", lastFailure());
    EXPECT_NE(0, CSDKMain_SaveWebSecCache(engine, (folder / "no/where").c_str()));
    EXPECT_EQ("3 cannot open " + folder / "no/where" + ": No such file or directory", lastFailure());
}

}  // namespace
