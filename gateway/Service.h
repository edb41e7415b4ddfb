// What katd-http answers to each request.
#ifndef GATEWAY_SERVICE_H
#define GATEWAY_SERVICE_H

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Explanation.h"
#include "History.h"
#include "KatdPool.h"
#include "Metrics.h"
#include "Settings.h"
#include "httplib.h"

namespace gateway {

// Thread-safe.
class Service {
public:
    Service(const Settings& settings, Rules rules);

    // The requests of programs and of people whose request was refused.
    void answerPublic(const httplib::Request& request, httplib::Response& response);
    // The administrator's page, metrics and health.
    void answerAdministrator(const httplib::Request& request, httplib::Response& response);
    // Both, for a listener that serves everything.
    void answerAll(const httplib::Request& request, httplib::Response& response);

    // Requests from now on follow these.
    void setRules(Rules rules);

private:
    using RulesPointer = std::shared_ptr<const Rules>;

    RulesPointer rules() const;
    katclient_answer ask(const std::string& url);
    void ask(const std::vector<std::string>& urls, std::vector<katclient_answer>* answers);
    bool katdAnswers();

    bool dispatchPublic(const httplib::Request& request, httplib::Response& response);
    bool dispatchAdministrator(const httplib::Request& request, httplib::Response& response);
    void oneUrl(const httplib::Request& request, httplib::Response& response);
    void manyUrls(const httplib::Request& request, httplib::Response& response);
    void authorise(const httplib::Request& request, std::string_view rest, httplib::Response& response);
    void blocked(const httplib::Request& request, httplib::Response& response);
    void administrator(const httplib::Request& request, httplib::Response& response);
    void metrics(httplib::Response& response);
    void health(httplib::Response& response);

    KatdPool pool_;
    Metrics metrics_;
    History history_;
    Explainer explainer_;
    const std::string katdLog_;
    mutable std::mutex mutex_;
    RulesPointer rules_;                                 // guarded by mutex_
    bool answers_ = false;                               // of the last check; guarded by mutex_
    std::chrono::steady_clock::time_point nextCheck_{};  // guarded by mutex_
};

}  // namespace gateway

#endif
