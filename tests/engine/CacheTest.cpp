#include <cerrno>
#include <vector>

#include "engine/EngineFixture.h"

namespace katd_test {
namespace {

class CacheTest : public EngineFixture {
protected:
    int save() { return CSDKMain_SaveWebSecCache(engine, path.c_str()); }
    int load() { return CSDKMain_LoadWebSecCache(engine, path.c_str()); }

    // Has the engine learn these answers and forget how it came to them.
    void teach(const std::string& maxEntries, const std::string& rules,
               const std::vector<std::string>& urls) {
        create(maxEntries);
        setRules(rules);
        for (const std::string& url : urls)
            ask(url);
        setRules("");
    }

    const std::string path = dir / "cache";
};

TEST_F(CacheTest, LearnsCategoriesByUrl) {
    teach("10",
          "host a.example 5,0,300\nhost b.example unknown\nhost c.example final\nhost d.example fail 1 2 "
          "\"x\"\n",
          {"http://A.example/x", "b.example", "c.example", "d.example"});
    EXPECT_EQ("5,0,300", ask("a.example/x"));
    for (const char* url : {"a.example", "a.example/X", "b.example", "c.example", "d.example"}) {
        EXPECT_EQ("unknown", ask(url)) << url;
    }
}

TEST_F(CacheTest, ForgetsWhatWasLearntLongestAgo) {
    const std::string rules = "prefix a 1\nprefix b 2\nprefix c 3\n";
    teach("2", rules, {"a", "b", "a", "c"});
    EXPECT_EQ("1", ask("a"));
    EXPECT_EQ("unknown", ask("b"));
    EXPECT_EQ("3", ask("c"));
    for (const char* none : {"0", "", "x"}) {
        teach(none, rules, {"a"});
        EXPECT_EQ("unknown", ask("a")) << none;
    }
}

TEST_F(CacheTest, SavedCacheIsWhatTheNextEngineKnows) {
    const std::string odd = "odd.example/a b\tc\nd\\e\x7f\xe4";
    teach("10", "host a.example 1\nhost b.example 22,300\nhost odd.example 3\n",
          {"a.example", "b.example/x", odd});
    ASSERT_EQ(0, save());
    create("2");  // the two that were learnt last
    ASSERT_EQ(0, load());
    EXPECT_EQ("unknown", ask("a.example"));
    EXPECT_EQ("22,300", ask("b.example/x"));
    EXPECT_EQ("3", ask(odd));
    ASSERT_EQ(0, save());  // replaces the longer file
    create("10");
    ASSERT_EQ(0, load());
    EXPECT_EQ("3", ask(odd));
    EXPECT_EQ("unknown", ask("a.example"));
}

TEST_F(CacheTest, FileThatIsNotWholeIsRefusedAndChangesNothing) {
    teach("10", "host a.example 1\nhost b.example 2\n", {"a.example", "b.example"});
    ASSERT_EQ(0, save());
    const std::string whole = readFile(path);
    teach("10", "host c.example 3\n", {"c.example"});
    std::vector<std::string> damaged;
    for (std::size_t size = 0; size < whole.size(); ++size)
        damaged.push_back(whole.substr(0, size));
    for (std::size_t i = 0; i < whole.size(); ++i) {
        damaged.push_back(whole);
        damaged.back()[i] = static_cast<char>(damaged.back()[i] ^ 1);
    }
    damaged.push_back(whole + "4 d.example\n");
    for (const std::string& text : damaged) {
        writeFile(path, text);
        ASSERT_NE(0, load()) << text;
        ASSERT_EQ("fail 3 0 " + path + " is no cache file, or it is cut or damaged", lastFailure());
    }
    EXPECT_EQ("3", ask("c.example"));
    EXPECT_EQ("unknown", ask("a.example"));
    writeFile(path, whole);
    EXPECT_EQ(0, load());
    EXPECT_EQ("1", ask("a.example"));
    EXPECT_EQ("unknown", ask("c.example"));
}

TEST_F(CacheTest, FilesThatCannotBeUsedAreNamed) {
    create("10");
    EXPECT_NE(0, load());
    EXPECT_EQ("fail 3 " + std::to_string(ENOENT) + " cannot open " + path + ": No such file or directory",
              lastFailure());
    EXPECT_NE(0, CSDKMain_LoadWebSecCache(engine, dir.path().c_str()));
    EXPECT_EQ(0U, lastFailure().find("fail 3 " + std::to_string(EISDIR) + " cannot read "));
    EXPECT_NE(0, CSDKMain_SaveWebSecCache(engine, dir.path().c_str()));
    EXPECT_EQ(0U, lastFailure().find("fail 3 " + std::to_string(EISDIR) + " cannot open "));
    EXPECT_NE(0, CSDKMain_SaveWebSecCache(engine, "/dev/full"));
    EXPECT_EQ(0U, lastFailure().find("fail 3 " + std::to_string(ENOSPC) + " cannot write "));
}

TEST_F(CacheTest, RulesDecideHowFunctionsEnd) {
    teach("10", "host a.example 1\n", {"a.example"});
    setRules(
        "create fail 7 8 \"no licence\" then ok\n"
        "load   fail 9 10 \"not today\" then ok\n"
        "save   fail 11 12 \"no\" then partial 13 28 \"no space left\" then ok\n");
    EXPECT_EQ(nullptr, CSDKMain_Create("ServerAddress=localhost"));
    EXPECT_EQ("fail 7 8 no licence", lastFailure());

    EXPECT_NE(0, save());
    EXPECT_EQ("fail 11 12 no", lastFailure());
    EXPECT_FALSE(std::ifstream(path).is_open()) << "nothing is written";
    EXPECT_NE(0, save());
    EXPECT_EQ("fail 13 28 no space left", lastFailure());
    const std::string part = readFile(path);
    EXPECT_EQ(0, save());
    EXPECT_EQ(readFile(path).substr(0, part.size()), part);
    EXPECT_EQ(readFile(path).size() / 2, part.size());

    create("10");
    EXPECT_NE(0, load());
    EXPECT_EQ("fail 9 10 not today", lastFailure());
    EXPECT_EQ("unknown", ask("a.example"));
    EXPECT_EQ(0, load());
    EXPECT_EQ("1", ask("a.example"));
}

}  // namespace
}  // namespace katd_test
