// Measures the catalogue against LMDB itself, in one run: importing lists, the size of the file, opening it
// and looking up.
#include <lmdb.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "Fail.h"
#include "Names.h"
#include "catalog/Catalog.h"
#include "catalog/Format.h"
#include "catalog/Guard.h"

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

struct Times {
    double wall = 0;
    double processor = 0;
};

double wallNow() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct Sizes {
    unsigned lines = 0;
    std::uint64_t nameBytes = 0;  // each host once
};

// One folder for each category, as lists are published. Hosts are in no order; one in five has two
// categories.
Sizes writeLists(const Names& names, unsigned hosts, const std::string& folder) {
    std::vector<std::ofstream> lists;
    std::filesystem::create_directories(folder);
    std::ofstream numbers(folder + "/categories");
    for (unsigned i = 0; i < categories; ++i) {
        const std::string name = "c" + std::to_string(i);
        std::filesystem::create_directories(folder + "/lists/" + name);
        lists.emplace_back(folder + "/lists/" + name + "/domains");
        numbers << name << " = " << i << "\n";
    }
    std::vector<std::uint32_t> order(hosts);
    std::iota(order.begin(), order.end(), 0U);
    std::shuffle(order.begin(), order.end(), std::minstd_rand(1));
    Sizes sizes;
    std::string host;
    for (unsigned i = 0; i < hosts; ++i) {
        host.clear();
        names.appendHost(order[i], &host);
        sizes.nameBytes += host.size();
        lists[i % categories] << host << "\n";
        if (i % 5 == 0) lists[(i + 7) % categories] << host << "\n";
        sizes.lines += i % 5 == 0 ? 2 : 1;
    }
    for (std::ofstream& list : lists)
        check(list.flush().good(), "cannot write below " + folder);
    return sizes;
}

// What people run, in a process of its own. *peak becomes its memory in kilobytes, or that of this process at
// the time if it is more.
Times import(const std::string& folder, const std::string& to, long* peak) {
    const std::string numbers = folder + "/categories";
    const std::string lists = folder + "/lists";
    const double start = wallNow();
    const char* const words[] = {KATCATALOG_BINARY, "import",      "--quiet", "--map", numbers.c_str(), "-o",
                                 to.c_str(),        lists.c_str(), nullptr};
    pid_t child = 0;
    check(posix_spawn(&child, words[0], nullptr, nullptr, const_cast<char* const*>(words), environ) == 0,
          "cannot start katcatalog");
    int status = -1;
    rusage usage{};
    check(wait4(child, &status, 0, &usage) == child && status == 0, "katcatalog import failed");
    if (peak != nullptr) *peak = usage.ru_maxrss;
    return {wallNow() - start, seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

using Records = std::vector<std::pair<std::string, std::string>>;

// The records of a catalogue, in their order.
Records recordsOf(const std::string& path) {
    Records records;
    MDB_env* source = nullptr;
    MDB_txn* reading = nullptr;
    MDB_cursor* cursor = nullptr;
    mdb_env_create(&source);
    check(mdb_env_open(source, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK | MDB_RDONLY, 0) == 0,
          "cannot open " + path);
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
    return records;
}

// By LMDB alone, in one transaction that is synced like an import.
Times append(const Records& records, const std::string& to) {
    std::filesystem::remove(to);
    const double start = now();
    const double wallStart = wallNow();
    MDB_env* target = nullptr;
    MDB_txn* writing = nullptr;
    MDB_cursor* cursor = nullptr;
    MDB_dbi dbi = 0;
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
    return {wallNow() - wallStart, secondsSince(start)};
}

void keepLess(Times* least, const Times& times) {
    least->wall = std::min(least->wall, times.wall);
    least->processor = std::min(least->processor, times.processor);
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

    const std::string inputs = folder + "/catalog_bench_lists";
    const Sizes sizes = writeLists(names, hosts, inputs);
    Records records;
    Times imported{1e9, 1e9};
    Times appended{1e9, 1e9};
    long peak = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        keepLess(&imported, import(inputs, path, round == 0 ? &peak : nullptr));
        if (records.empty()) records = recordsOf(path);
        keepLess(&appended, append(records, plain));
    }
    records = Records();
    std::filesystem::remove_all(inputs);
    std::printf("import of %u lines: %.2f s of processor time, %.2f s in all, at most %ld MB of memory\n",
                sizes.lines, imported.processor, imported.wall, peak / 1000);
    std::printf("append by LMDB alone: %.2f s of processor time, %.2f s in all\n", appended.processor,
                appended.wall);
    std::printf("import: ratio %.2f of processor time, %.2f in all\n",
                imported.processor / appended.processor, imported.wall / appended.wall);
    struct stat state {};
    ::stat(path.c_str(), &state);
    std::printf("file %.1f MB, names %.1f MB: ratio %.2f\n", static_cast<double>(state.st_size) / 1e6,
                static_cast<double>(sizes.nameBytes) / 1e6,
                static_cast<double>(state.st_size) / static_cast<double>(sizes.nameBytes));

    std::string failure;
    const double opened = best([&] { check(catalog::Catalog::open(path, &failure) != nullptr, failure); });
    std::printf("opened in %.2f ms\n", opened * 1e3);

    // mdb_get of hosts that are there, in the same file; a transaction for each, as a program that serves
    // must have.
    const auto file = catalog::Catalog::open(path, &failure);
    check(file != nullptr, failure);
    std::vector<std::string> keys;
    for (unsigned i = 0; i < questions; ++i) {
        std::string host;
        names.appendHost(static_cast<std::uint32_t>(Names::mix(i) % hosts), &host);
        catalog::Url url;
        check(catalog::readUrl(host, &url) == nullptr, "no URL");
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
