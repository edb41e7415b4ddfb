// micro_bench [OPTION OF GOOGLE BENCHMARK]... KIND ARGUMENT...
#include <cstring>

#include "Fail.h"
#include "Micro.h"

namespace {

constexpr const char* usage =
    "Usage: micro_bench [OPTION]... search URLS DOMAINS | load LIST | url URLS DOMAINS | log FOLDER\n"
    "\n"
    "The files are lists that generate_list made. Options are those of Google Benchmark:\n"
    "--benchmark_repetitions=N and the like.\n"
    "Exit status: 0 success, 1 failure, 2 bad usage.\n";

}  // namespace

int main(int argc, char** argv) {
    using namespace bench;
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (argc == 2 && strcmp(argv[1], "--version") == 0) {
        std::puts("micro_bench " BENCH_VERSION);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    const std::string kind = argc > 1 ? argv[1] : "";
    if (kind == "search" && argc == 4) {
        registerSearches(argv[2], argv[3]);
    } else if (kind == "load" && argc == 3) {
        registerLoads(argv[2]);
    } else if (kind == "url" && argc == 4) {
        registerUrls(argv[2], argv[3]);
    } else if (kind == "log" && argc == 3) {
        registerMessages(argv[2]);
    } else {
        std::fputs(usage, stderr);
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
}
