// The catalogue against a plain model of what it is to answer.
#include <unistd.h>

#include <algorithm>
#include <random>

#include "catalog/CatalogFixture.h"
#include "catalog/SharedGroups.h"

using namespace catalog;

namespace {

// What one entry of the model covers.
bool covers(const Url& entry, const Url& url) {
    if (entry.kind != url.kind || (entry.portGiven && entry.port != url.port)) return false;
    std::string host = url.host;
    if (entry.kind != Url::name) maskAddress(host.data(), host.size(), entry.prefix);
    if (host.compare(0, entry.host.size(), entry.host) != 0) return false;
    if (host.size() > entry.host.size() && host[entry.host.size()] != '\0') return false;
    if (url.path.compare(0, entry.path.size(), entry.path) != 0) return false;
    if (url.path.size() == entry.path.size() || entry.path.empty()) return true;
    const char next = url.path[entry.path.size()];
    return entry.path.find('?') == std::string::npos ? next == '/' || next == '?' : next == '&';
}

struct ModelEntry {
    Url url;
    Entry entry;
};
using Model = std::map<std::string, ModelEntry>;  // by its text

std::vector<unsigned> modelAnswer(const Model& model, const Url& url, bool* covered) {
    std::vector<const ModelEntry*> found;
    for (const auto& [text, entry] : model) {
        if (covers(entry.url, url)) found.push_back(&entry);
    }
    const auto rank = [](const ModelEntry* e) {
        return std::make_tuple(e->url.prefix, e->url.host.size(), e->url.path.size(), e->url.portGiven);
    };
    std::sort(found.begin(), found.end(), [&](auto a, auto b) { return rank(a) > rank(b); });
    std::vector<unsigned> categories;
    *covered = !found.empty();
    for (const ModelEntry* entry : found) {
        for (const Pair& pair : entry->entry.pairs) {
            if (std::find(categories.begin(), categories.end(), pair.category) == categories.end())
                categories.push_back(pair.category);
        }
        if (entry->entry.instead) break;
    }
    return categories;
}

// The same entries in a shared store.
using Store = std::map<std::string, std::string>;

Store storeOf(const Model& model) {
    SharedGroups groups;
    for (const auto& [text, entry] : model) {
        std::vector<std::uint16_t> categories;
        for (const Pair& pair : entry.entry.pairs)
            categories.push_back(pair.category);
        groups.add(entry.url, entry.entry.instead, categories);
    }
    return groups.records();
}

void askStore(const Store& store, const Url& url, Answer* answer) {
    const SharedQuestion question(url);
    answer->covered = false;
    answer->count = 0;
    for (std::size_t i = 0; i < question.size(); ++i) {
        SharedQuestion::Values values;
        for (std::size_t level = 0; level < sharedLevels; ++level) {
            if (level > 0 && !groupHasBelow(values[level - 1])) break;
            const auto found = store.find(question.key(i, level));
            if (found == store.end()) break;
            EXPECT_TRUE(isGroup(found->second));
            values[level] = found->second;
        }
        if (!question.add(values, answer)) break;
    }
}

// Few words, so that much lies below and beside something else.
class Texts {
public:
    explicit Texts(unsigned seed) : random_(seed) {}

    unsigned upTo(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n)(random_); }

    std::string host() {
        static const char* const addresses[] = {"10.0.0.1",      "10.0.0.2",      "10.0.1.1",
                                                "[2001:db8::1]", "[2001:db8::2]", "[2001:db9::1]"};
        if (upTo(5) == 0) return addresses[upTo(5)];
        static const char* const labels[] = {"a", "b", "a-", "ab", "4"};
        std::string text = labels[upTo(3)];
        for (unsigned n = upTo(upTo(9) == 0 ? 30 : 4); n > 0; --n)
            text = std::string(labels[upTo(4)]) + "." + text;
        return text;
    }
    std::string rest() {
        static const char* const segments[] = {"x", "y", "x-", "xy", "", ".", "..", "%78", "x%2fy"};
        static const char* const queries[] = {"q", "q&r", "q&r=1", "q-", "q/x", "Q?x"};
        std::string text;
        if (upTo(4) == 0) text += upTo(1) == 0 ? ":80" : ":8080";
        for (unsigned n = upTo(upTo(9) == 0 ? 200 : 4); n > 0; --n)
            text += std::string("/") + segments[upTo(8)];
        if (upTo(4) == 0) text += std::string("?") + queries[upTo(5)];
        return text;
    }
    std::string entry() {
        static const char* const networks[] = {"10.0.0.0/8",    "10.0.0.0/24",   "10.0.0.0/31", "0.0.0.0/0",
                                               "2001:db8::/32", "2001:d00::/24", "::/0"};
        if (upTo(9) == 0) return networks[upTo(6)];
        return host() + (upTo(1) == 0 ? "" : rest());
    }
    std::string url() {
        static const char* const schemes[] = {"http://", "https://", "", "HTTP://u@"};
        return schemes[upTo(3)] + host() + rest();
    }

private:
    std::mt19937 random_;
};

class CatalogModelTest : public CatalogFixture {
protected:
    void compare(const Model& model, Texts* texts, unsigned questions) {
        Reader reader(openCatalog());
        const Store store = storeOf(model);
        const auto answer = std::make_unique<Answer>();
        const auto categories = [&] {
            return std::vector<unsigned>(answer->categories, answer->categories + answer->count);
        };
        for (unsigned i = 0; i < questions; ++i) {
            const std::string text = texts->url();
            Url url;
            if (readUrl(text, &url) != nullptr) continue;
            bool covered = false;
            const auto expected = modelAnswer(model, url, &covered);
            ASSERT_EQ(Reader::done, reader.classify(url, answer.get())) << text;
            ASSERT_EQ(expected, categories()) << text;
            ASSERT_EQ(covered, answer->covered) << text;
            askStore(store, url, answer.get());
            ASSERT_EQ(expected, categories()) << "shared: " << text;
            ASSERT_EQ(covered, answer->covered) << "shared: " << text;
        }
    }

    // Adds a random entry to the model; its key in the model.
    std::string addTo(Model* model, Texts* texts) {
        ModelEntry entry;
        EntryKeys keys;
        do {
            const std::string text = texts->entry();
            if (readEntry(text, &entry.url) != nullptr) entry.url.host.clear();
        } while (entry.url.host.empty() || entryKeys(entry.url, &keys) != nullptr);
        entry.entry.instead = texts->upTo(6) == 0;
        for (unsigned n = texts->upTo(3); n > 0; --n) {
            const auto category = static_cast<std::uint16_t>(texts->upTo(9) * 7000);
            const bool known = std::any_of(entry.entry.pairs.begin(), entry.entry.pairs.end(),
                                           [&](const Pair& pair) { return pair.category == category; });
            if (!known) entry.entry.pairs.push_back({category, 1});
        }
        const std::string key = keyText(keys.own);
        (*model)[key] = entry;
        return key;
    }

    // Files of the format's version 1 have none.
    void removeFilter() {
        MDB_env* environment = nullptr;
        MDB_txn* transaction = nullptr;
        MDB_dbi records = 0;
        char name = hostFilter;
        MDB_val key{1, &name};
        mdb_env_create(&environment);
        mdb_env_open(environment, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK, 0644);
        mdb_txn_begin(environment, nullptr, 0, &transaction);
        mdb_dbi_open(transaction, nullptr, 0, &records);
        EXPECT_EQ(0, mdb_del(transaction, records, &key, nullptr));
        EXPECT_EQ(0, mdb_txn_commit(transaction));
        mdb_env_close(environment);
    }

    void build(const Model& model, bool compact) {
        Builder builder;
        for (const auto& [text, entry] : model) {
            builder.add(entry.url, Builder::noCategory, 0, entry.entry.instead);
            for (const Pair& pair : entry.entry.pairs)
                builder.add(entry.url, pair.category, pair.source, entry.entry.instead);
        }
        write(&builder, compact);
    }
};

TEST_F(CatalogModelTest, builtCataloguesAnswerLikeTheModel) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        Texts texts(seed);
        Model model;
        for (unsigned n = seed % 3 == 0 ? 5 : 150; n > 0; --n)
            addTo(&model, &texts);
        build(model, seed % 2 == 0);
        if (seed % 5 == 0) removeFilter();
        compare(model, &texts, 400);
        if (HasFatalFailure()) return;
    }
}

TEST_F(CatalogModelTest, changedCataloguesAnswerLikeTheModel) {
    for (unsigned seed = 100; seed < 110; ++seed) {
        SCOPED_TRACE(seed);
        Texts texts(seed);
        Model model;
        for (unsigned n = seed % 2 == 0 ? seed % 60 : 400; n > 0; --n)
            addTo(&model, &texts);
        build(model, false);
        for (unsigned round = 0; round < 6; ++round) {
            const auto update = openUpdate();
            const bool abandoned = texts.upTo(4) == 0;
            Model changed = model;
            // Many changes are merged, few stay recent.
            const bool clears = texts.upTo(9) == 0;
            for (std::size_t n = clears ? changed.size() : texts.upTo(texts.upTo(1) == 0 ? 60 : 15); n > 0;
                 --n) {
                if (!clears && (texts.upTo(2) > 0 || changed.empty())) {
                    const std::string key = addTo(&changed, &texts);
                    update->put(changed[key].url, changed[key].entry);
                } else {
                    const auto gone =
                        std::next(changed.begin(), texts.upTo(static_cast<unsigned>(changed.size()) - 1));
                    EntryKeys keys;
                    entryKeys(gone->second.url, &keys);
                    EXPECT_TRUE(update->erase(keys.own, keys.host)) << gone->first;
                    EXPECT_FALSE(update->erase(keys.own, keys.host));
                    changed.erase(gone);
                }
            }
            if (!abandoned) {
                update->commit();
                model = changed;
            }
            compare(model, &texts, 300);
            if (HasFatalFailure()) return;
        }
        EXPECT_EQ(model.size(), openUpdate()->header().entries);
        EXPECT_THAT(openUpdate()->check(), testing::IsEmpty());
    }
}

// What a store can hold instead of a group. The sanitizers see what is read beyond it.
TEST(SharedGroupTest, damagedValuesAreRefusedOrHarmless) {
    const std::string group =
        encodeGroup({{8080, std::string("\1x", 2), true, {1, 300}}, {0, "", false, {7}}}, true);
    ASSERT_TRUE(isGroup(group));
    EXPECT_FALSE(isGroup(""));
    EXPECT_FALSE(isGroup("foreign"));
    unsigned whole = 0;  // a cut between two entries leaves a group
    for (std::size_t size = 1; size < group.size(); ++size)
        whole += isGroup(group.substr(0, size)) ? 1U : 0U;
    EXPECT_EQ(2U, whole);
    Url url;
    ASSERT_EQ(nullptr, readUrl("a.example:8080/p/q/x/y", &url));
    const SharedQuestion question(url);
    const auto answer = std::make_unique<Answer>();
    for (std::size_t i = 0; i < group.size(); ++i) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            const auto damaged = std::make_unique<std::string>(group);
            (*damaged)[i] = static_cast<char>(byte);
            if (isGroup(*damaged)) question.add({"", "", *damaged}, answer.get());
        }
    }
    EXPECT_EQ("0123456789abcdef", sharedVersion(sharedMeta("0123456789abcdef")));
    for (const char* const meta : {"", "katd-store 1 ", "katd-store 2 a", "katd-store 1 a b", "hello"})
        EXPECT_EQ("", sharedVersion(meta)) << meta;
}

}  // namespace
