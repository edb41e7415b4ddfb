#include "Metrics.h"

#include <prometheus/text_serializer.h>

namespace gateway {

namespace {

const prometheus::Histogram::BucketBoundaries latencyBounds = {
    0.00005, 0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10};

prometheus::Family<prometheus::Counter>& counters(prometheus::Registry* registry, const char* name,
                                                  const char* help) {
    return prometheus::BuildCounter().Name(name).Help(help).Register(*registry);
}

prometheus::Family<prometheus::Gauge>& gauges(prometheus::Registry* registry, const char* name,
                                              const char* help) {
    return prometheus::BuildGauge().Name(name).Help(help).Register(*registry);
}

}  // namespace

Metrics::Metrics(unsigned connections)
    : answers_(counters(&registry_, "katd_http_questions_total", "URLs that katd was asked for, by outcome")),
      known_(answers_.Add({{"outcome", "known"}})),
      unknown_(answers_.Add({{"outcome", "unknown"}})),
      failed_(answers_.Add({{"outcome", "failed"}})),
      seconds_(prometheus::BuildHistogram()
                   .Name("katd_http_answer_seconds")
                   .Help("Time from a question to katd's answer, waiting for a connection included")
                   .Register(registry_)
                   .Add({}, latencyBounds)),
      categories_(counters(&registry_, "katd_http_categories_total", "Categories in katd's answers")),
      verdicts_(counters(&registry_, "katd_http_verdicts_total", "Requests of front servers, by verdict")),
      passed_(verdicts_.Add({{"verdict", "pass"}})),
      refused_(verdicts_.Add({{"verdict", "refuse"}})),
      undecided_(verdicts_.Add({{"verdict", "fail"}})),
      connections_(
          gauges(&registry_, "katd_http_connections", "Connections to katd that this program may open")
              .Add({})),
      up_(gauges(&registry_, "katd_up", "1 while katd answers, else 0").Add({})),
      engine_(gauges(&registry_, "katd_engine_urls",
                     "URLs that katd asked its engine for since its start, as its log last said")) {
    connections_.Set(connections);
}

void Metrics::addAnswer(const katclient_answer& answer, std::chrono::nanoseconds time) {
    if (answer.status != KATCLIENT_OK) {
        failed_.Increment();
        return;
    }
    (answer.known != 0 ? known_ : unknown_).Increment();
    seconds_.Observe(std::chrono::duration<double>(time).count());
    for (unsigned i = 0; i < answer.count; ++i) {
        std::atomic<prometheus::Counter*>& counter = category_[answer.categories[i]];
        // Add() returns the counter that is there already: threads that race here get the same one.
        if (counter.load(std::memory_order_acquire) == nullptr)
            counter.store(&categories_.Add({{"category", std::to_string(answer.categories[i])}}),
                          std::memory_order_release);
        counter.load(std::memory_order_relaxed)->Increment();
    }
}

void Metrics::addVerdict(Verdict verdict) {
    (verdict == Verdict::pass ? passed_ : verdict == Verdict::refuse ? refused_ : undecided_).Increment();
}

void Metrics::setAnswers(bool answers) {
    up_.Set(answers ? 1 : 0);
}

void Metrics::setEngineCounters(double urls, double matched) {
    engine_.Add({{"kind", "asked"}}).Set(urls);
    engine_.Add({{"kind", "matched"}}).Set(matched);
}

std::string Metrics::page() {
    return prometheus::TextSerializer().Serialize(registry_.Collect());
}

}  // namespace gateway
