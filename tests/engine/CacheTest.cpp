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

TEST_F(CacheTest, LearnsCategoriesAndForgetsWhatWasLearntLongestAgo) {
    teach("10", "host a.example 5,0,300\nhost b.example unknown\nhost c.example final\n",
          {"http://A.example/x", "b.example", "c.example"});
    EXPECT_EQ("5,0,300", ask("a.example/x"));
    for (const char* url : {"a.example", "b.example", "c.example"})
        EXPECT_EQ("unknown", ask(url)) << url;
    const std::string rules = "prefix a 1\nprefix b 2\nprefix c 3\n";
    teach("2", rules, {"a", "b", "a", "c"});
    EXPECT_EQ("1", ask("a"));
    EXPECT_EQ("unknown", ask("b"));
    EXPECT_EQ("3", ask("c"));
    teach("0", rules, {"a"});
    EXPECT_EQ("unknown", ask("a"));
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
}

TEST_F(CacheTest, FileThatIsNotWholeIsRefusedAndChangesNothing) {
    create("10");
    EXPECT_NE(0, load());
    EXPECT_EQ("fail 3 2 cannot open " + path + ": No such file or directory", lastFailure());
    EXPECT_NE(0, CSDKMain_SaveWebSecCache(engine, "/dev/full"));
    EXPECT_EQ("fail 3 28 cannot write /dev/full: No space left on device", lastFailure());
    teach("10", "host a.example 1\nhost b.example 2\n", {"a.example", "b.example"});
    ASSERT_EQ(0, save());
    const std::string whole = readFile(path);
    teach("10", "host c.example 3\n", {"c.example"});
    std::vector<std::string> damaged = {whole + "4 d.example\n"};
    for (std::size_t i = 0; i < whole.size(); ++i) {
        damaged.push_back(whole.substr(0, i));
        damaged.push_back(whole);
        damaged.back()[i] = static_cast<char>(damaged.back()[i] ^ 1);
    }
    for (const std::string& text : damaged) {
        writeFile(path, text);
        ASSERT_NE(0, load()) << text;
        ASSERT_EQ("fail 3 0 " + path + " is no cache file, or it is cut or damaged", lastFailure());
    }
    EXPECT_EQ("3", ask("c.example"));
    writeFile(path, whole);
    EXPECT_EQ(0, load());
    EXPECT_EQ("1", ask("a.example"));
    EXPECT_EQ("unknown", ask("c.example"));
}

}  // namespace
}  // namespace katd_test
