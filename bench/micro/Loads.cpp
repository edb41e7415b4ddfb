// Loading a list, compared with reading its file in blocks and copying each item once.
#include <optional>

#include "Fail.h"
#include "Micro.h"
#include "PlainList.h"
#include "StringList/StringList.h"

namespace bench {

void registerLoads(const std::string& path) {
    // Both free the memory outside the measurement.
    benchmark::RegisterBenchmark("load", [=](benchmark::State& state) {
        for (auto _ : state) {
            KATD_SPACE::StringList list;
            if (!list.load(path.c_str())) fail("%s cannot be loaded", path.c_str());
            state.PauseTiming();
            list.reset();
            state.ResumeTiming();
        }
    });
    benchmark::RegisterBenchmark("load_plain", [=](benchmark::State& state) {
        for (auto _ : state) {
            std::optional<PlainList> list(path);
            benchmark::DoNotOptimize(list->size());
            state.PauseTiming();
            list.reset();
            state.ResumeTiming();
        }
    });
}

}  // namespace bench
