// From a raw URL to the answer from two small lists; most of it is normalisation.
#include <cstring>

#include "Fail.h"
#include "Micro.h"
#include "UrlContainer/UrlContainer.h"

namespace bench {

namespace {

constexpr struct {
    const char* name;
    const char* url;
} URLS[] = {
    {"url_short", "http://gazette.example/"},
    {"url_long",
     "https://www.harbour-gazette.example/sections/culture/2024/a-long-title-of-a-long-article"
     "?utm_source=newsletter&utm_medium=email&utm_campaign=spring&id=482910374&page=2"},
    {"url_escaped", "http://gazette.example/%7euser/a%20page%20of%20the%20user/%e4%bd%a0%e5%a5%bd?x=%2f%3f"},
};

}  // namespace

void registerUrls(const std::string& urlsPath, const std::string& domainsPath) {
    auto* const lists = new KATD_SPACE::UrlContainer;  // lives as long as the process
    if (!lists->load(urlsPath.c_str(), domainsPath.c_str())) fail("%s cannot be loaded", urlsPath.c_str());
    for (const auto& asked : URLS) {
        benchmark::RegisterBenchmark(asked.name, [=](benchmark::State& state) {
            const std::size_t size = strlen(asked.url) + 1;
            char url[512];
            for (auto _ : state) {
                memcpy(url, asked.url, size);
                std::uint32_t category = 0;
                benchmark::DoNotOptimize(lists->getUrlCategory(url, &category));
            }
        });
    }
}

}  // namespace bench
