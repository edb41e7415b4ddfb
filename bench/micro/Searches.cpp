// The searches of a list, compared with a plain binary search; the keys are in random order.
#include <malloc.h>

#include <random>
#include <vector>

#include "Fail.h"
#include "Micro.h"
#include "PlainList.h"
#include "StringList/StringList.h"

namespace bench {

namespace {

using KATD_SPACE::StringList;

constexpr unsigned KEYS = 1U << 20;

// Bytes currently allocated.
std::size_t allocated() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// A list in both forms, and keys: half of them items, half of them not.
struct Fixture {
    Fixture(const std::string& path, bool isPrefix);

    std::size_t extraBytes = 0;  // of the StringList in addition to strings and entries
    StringList list;
    PlainList plain;
    std::string texts;
    std::vector<std::uint32_t> keys;  // offsets in `texts`
};

Fixture::Fixture(const std::string& path, bool isPrefix) : plain(path) {
    const std::size_t before = allocated();
    if (!list.load(path.c_str())) fail("%s cannot be loaded", path.c_str());
    const std::size_t needed = static_cast<std::size_t>(list.bufferSize) +
                               static_cast<std::size_t>(list.count) * sizeof(StringList::Entry);
    const std::size_t taken = allocated() - before;
    extraBytes = taken > needed ? taken - needed : 0;

    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> anyItem(0, plain.size() - 1);
    for (unsigned i = 0; i < KEYS; ++i) {
        keys.push_back(static_cast<std::uint32_t>(texts.size()));
        texts += plain.text(anyItem(random));
        if (i % 2 == 1) texts[keys.back() + 5] = 'x';  // no generated name contains an x
        if (isPrefix) texts += "/index.html";
        texts += '\0';
    }
    for (const std::uint32_t key : keys) {
        const char* const text = &texts[key];
        const std::int32_t expected = isPrefix ? plain.findPrefix(text) : plain.find(text);
        const char* const found = isPrefix ? list.find_sw(text, nullptr) : list.find(text, nullptr);
        if (expected < 0 ? found != nullptr : found == nullptr || std::string(found) != plain.text(expected))
            fail("the searches for %s differ", text);
    }
}

template <typename Search>
void add(const std::string& name, const Fixture* fixture, Search search) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        unsigned next = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(search(*fixture, &fixture->texts[fixture->keys[next]]));
            next = (next + 1) % KEYS;
        }
        state.counters["extra_bytes_an_item"] =
            static_cast<double>(fixture->extraBytes) / static_cast<double>(fixture->plain.size());
    });
}

}  // namespace

void registerSearches(const std::string& urlsPath, const std::string& domainsPath) {
    // They live as long as the process.
    const Fixture* const domains = new Fixture(domainsPath, false);
    const Fixture* const urls = new Fixture(urlsPath, true);
    add("find", domains, [](const Fixture& on, const char* key) { return on.list.find(key, nullptr); });
    add("find_plain", domains, [](const Fixture& on, const char* key) { return on.plain.find(key); });
    add("find_sw", urls, [](const Fixture& on, const char* key) { return on.list.find_sw(key, nullptr); });
    add("find_sw_plain", urls, [](const Fixture& on, const char* key) { return on.plain.findPrefix(key); });
}

}  // namespace bench
