// The metrics page in the text format of Prometheus.
#ifndef GATEWAY_METRICS_H
#define GATEWAY_METRICS_H

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <array>
#include <atomic>
#include <chrono>
#include <string>

#include "Policy.h"
#include "katclient.h"

namespace gateway {

// Thread-safe.
class Metrics {
public:
    explicit Metrics(unsigned connections);

    void addAnswer(const katclient_answer& answer, std::chrono::nanoseconds time);
    void addVerdict(Verdict verdict);
    void setAnswers(bool answers);
    // katd's own counters: URLs that reached its engine, and those of them with an answer.
    void setEngineCounters(double urls, double matched);

    // The page. A category is listed once it has occurred.
    std::string page();

private:
    prometheus::Registry registry_;
    prometheus::Family<prometheus::Counter>& answers_;
    prometheus::Counter& known_;
    prometheus::Counter& unknown_;
    prometheus::Counter& failed_;
    prometheus::Histogram& seconds_;
    prometheus::Family<prometheus::Counter>& categories_;
    std::array<std::atomic<prometheus::Counter*>, 256> category_{};
    prometheus::Family<prometheus::Counter>& verdicts_;
    prometheus::Counter& passed_;
    prometheus::Counter& refused_;
    prometheus::Counter& undecided_;
    prometheus::Gauge& connections_;
    prometheus::Gauge& up_;
    prometheus::Family<prometheus::Gauge>& engine_;
};

}  // namespace gateway

#endif
