// Measures the catalogue against LMDB itself, in one run: looking up, making the file, its size, opening it.
#include <lmdb.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Fail.h"
#include "Names.h"
#include "catalog/Catalog.h"
#include "catalog/Guard.h"
#include "catalog/Writer.h"

namespace {

using bench::Names;

constexpr unsigned categories = 60;
constexpr unsigned questions = 2000000;
constexpr unsigned rounds = 5;

// Processor time of this thread: other programs on the machine are not measured.
double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double secondsSince(double start) {
    return now() - start;
}

void check(bool good, const std::string& what) {
    if (!good) bench::fail("%s", what.c_str());
}

// The least of some rounds: what disturbs only adds.
template <typename Body>
double best(Body body) {
    double least = 1e9;
    for (unsigned round = 0; round < rounds; ++round) {
        const double start = now();
        body();
        least = std::min(least, secondsSince(start));
    }
    return least;
}

// The same records in their order, by LMDB alone, in one transaction that is synced like an import.
double appendAlone(const std::string& from, const std::string& to) {
    std::filesystem::remove(to);
    std::vector<std::pair<std::string, std::string>> records;
    MDB_env* source = nullptr;
    MDB_txn* reading = nullptr;
    MDB_cursor* cursor = nullptr;
    mdb_env_create(&source);
    check(mdb_env_open(source, from.c_str(), MDB_NOSUBDIR | MDB_NOLOCK | MDB_RDONLY, 0) == 0,
          "cannot open " + from);
    mdb_txn_begin(source, nullptr, MDB_RDONLY, &reading);
    MDB_dbi dbi = 0;
    mdb_dbi_open(reading, nullptr, 0, &dbi);
    mdb_cursor_open(reading, dbi, &cursor);
    MDB_val key;
    MDB_val value;
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == 0) {
        records.emplace_back(std::string(static_cast<const char*>(key.mv_data), key.mv_size),
                             std::string(static_cast<const char*>(value.mv_data), value.mv_size));
    }
    mdb_cursor_close(cursor);
    mdb_txn_abort(reading);
    mdb_env_close(source);

    const double start = now();
    MDB_env* target = nullptr;
    MDB_txn* writing = nullptr;
    mdb_env_create(&target);
    mdb_env_set_mapsize(target, std::size_t{8} << 30U);
    check(mdb_env_open(target, to.c_str(), MDB_NOSUBDIR | MDB_NOLOCK, 0644) == 0, "cannot write " + to);
    mdb_txn_begin(target, nullptr, 0, &writing);
    mdb_dbi_open(writing, nullptr, 0, &dbi);
    mdb_cursor_open(writing, dbi, &cursor);
    for (const auto& [name, data] : records) {
        MDB_val k{name.size(), const_cast<char*>(name.data())};
        MDB_val v{data.size(), const_cast<char*>(data.data())};
        check(mdb_cursor_put(cursor, &k, &v, MDB_APPEND) == 0, "append failed");
    }
    mdb_cursor_close(cursor);
    check(mdb_txn_commit(writing) == 0, "commit failed");
    mdb_env_close(target);
    return secondsSince(start);
}

// Hosts to look up, half of them below an entry, half below none.
std::vector<std::string> makeQuestions(const Names& names, unsigned hosts) {
    std::vector<std::string> result;
    result.reserve(questions);
    for (unsigned i = 0; i < questions; ++i) {
        const auto number = static_cast<std::uint32_t>(Names::mix(i) % hosts);
        std::string url = "http://www.";
        names.appendHost(i % 2 == 0 ? number : hosts + number, &url);
        url += "/images/2026/banner" + std::to_string(i % 100) + ".gif";
        result.push_back(url);
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned hosts = argc > 1 ? static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)) : 5000000;
    const std::string folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string();
    const std::string path = folder + "/catalog_bench.mdb";
    const std::string plain = folder + "/catalog_bench_plain.mdb";
    std::filesystem::remove(path);
    catalog::installFaultGuard();
    const Names names(1);

    std::vector<std::string> lines;
    std::uint64_t nameBytes = 0;
    for (unsigned i = 0; i < hosts; ++i) {
        std::string host;
        names.appendHost(i, &host);
        nameBytes += host.size();
        lines.push_back(std::move(host));
    }
    std::shuffle(lines.begin(), lines.end(), std::minstd_rand(1));

    const double start = now();
    catalog::Builder::Result result;
    {
        catalog::Builder builder;
        catalog::Url url;
        for (unsigned i = 0; i < hosts; ++i) {
            check(catalog::readUrl(lines[i], &url) == nullptr, "no entry: " + lines[i]);
            builder.add(url, i % categories, static_cast<std::uint16_t>(i % categories + 1));
            if (i % 5 == 0)
                builder.add(url, (i + 7) % categories, static_cast<std::uint16_t>((i + 7) % categories + 1));
        }
        const double read = secondsSince(start);
        builder.sort();
        const double sorted = secondsSince(start);
        std::string failure;
        check(builder.write(path, false, {}, {}, &result, &failure), failure);
        std::printf("made in %.2f s: read %.2f, sorted %.2f, written %.2f\n", secondsSince(start), read,
                    sorted - read, secondsSince(start) - sorted);
    }
    const double made = secondsSince(start);
    const double appended = appendAlone(path, plain);
    std::printf("append by LMDB alone %.2f s: ratio %.2f\n", appended, made / appended);
    struct stat state {};
    ::stat(path.c_str(), &state);
    std::printf("file %.1f MB, names %.1f MB: ratio %.2f\n", static_cast<double>(state.st_size) / 1e6,
                static_cast<double>(nameBytes) / 1e6,
                static_cast<double>(state.st_size) / static_cast<double>(nameBytes));

    std::string failure;
    const double opened = best([&] { check(catalog::Catalog::open(path, &failure) != nullptr, failure); });
    std::printf("opened in %.2f ms\n", opened * 1e3);

    // mdb_get of hosts that are there, in the same file; a transaction for each, as a program that serves
    // must have.
    const auto file = catalog::Catalog::open(path, &failure);
    check(file != nullptr, failure);
    std::vector<std::string> keys;
    for (unsigned i = 0; i < questions; ++i) {
        catalog::Url url;
        check(catalog::readUrl(lines[Names::mix(i) % hosts], &url) == nullptr, "no URL");
        keys.push_back(catalog::hostKey(url));
    }
    MDB_txn* transaction = nullptr;
    check(mdb_txn_begin(file->environment(), nullptr, MDB_RDONLY, &transaction) == 0, "no transaction");
    std::uint64_t found = 0;
    const double get = best([&] {
        for (const std::string& text : keys) {
            MDB_val key{text.size(), const_cast<char*>(text.data())};
            MDB_val value;
            found += mdb_get(transaction, 1, &key, &value) == 0 ? 1 : 0;
        }
    });
    mdb_txn_abort(transaction);
    check(found == std::uint64_t{rounds} * questions, "a host is missing");

    const std::vector<std::string> urls = makeQuestions(names, hosts);
    catalog::Reader reader(file);
    const auto answer = std::make_unique<catalog::Answer>();
    catalog::Url url;
    std::uint64_t covered = 0;
    const double read = best([&] {
        for (const std::string& text : urls)
            catalog::readUrl(text, &url);
    });
    const double lookedUp = best([&] {
        for (const std::string& text : urls) {
            catalog::readUrl(text, &url);
            check(reader.classify(url, answer.get()) == catalog::Reader::done, "the file is damaged");
            covered += answer->covered ? 1 : 0;
        }
    });
    check(covered == std::uint64_t{rounds} * questions / 2, "wrong answers");
    std::printf("mdb_get %.3f us, look-up %.3f us (reading the URL %.3f): ratio %.2f\n",
                get * 1e6 / questions, lookedUp * 1e6 / questions, read * 1e6 / questions, lookedUp / get);
    std::filesystem::remove(path);
    std::filesystem::remove(plain);
    return 0;
}
