#include "Service.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "Html.h"
#include "Pages.h"
#include "RequestUrl.h"
#include "tools/AnswerJson.h"
#include "tools/Json.h"

namespace gateway {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char jsonType[] = "application/json";
constexpr char htmlType[] = "text/html; charset=utf-8";
constexpr std::size_t mostUrls = 1000;
constexpr std::chrono::seconds checkInterval(1);
// Any answer for this URL, even "unknown", shows that katd works.
constexpr char healthUrl[] = "health.katd-http.invalid";
// Bytes at the end of katd's log that are searched for its counters.
constexpr std::streamoff logTail = 256 * 1024;

void reply(httplib::Response& response, int status, const std::string& body, const char* type) {
    response.status = status;
    response.set_content(body, type);
}

void replyProblem(httplib::Response& response, int status, const std::string& sentence) {
    reply(response, status, tools::jsonText({{"error", sentence}}) + "\n", jsonType);
}

void replyPage(httplib::Response& response, int status, const Page& page) {
    response.set_header("Content-Security-Policy", page.contentSecurityPolicy);
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Referrer-Policy", "no-referrer");
    response.set_header("Cache-Control", "no-store");
    reply(response, status, page.html, htmlType);
}

std::string answerJson(const std::string& url, const katclient_answer& answer,
                       const tools::CategoryNames& names) {
    if (answer.status != KATCLIENT_OK) return tools::failureJson(url, katclient_status_text(answer.status));
    return tools::answerJson(url, answer, names.empty() ? nullptr : &names);
}

std::string nameOf(const tools::CategoryNames& names, int category) {
    return category < 0 ? std::string() : names.display(static_cast<std::uint32_t>(category));
}

// Category names for a header value, which must be ASCII: other names are replaced by their numbers.
std::string headerValue(const katclient_answer& answer, const tools::CategoryNames& names) {
    std::string value;
    for (unsigned i = 0; i < answer.count; ++i) {
        const std::string name = nameOf(names, answer.categories[i]);
        const bool isAscii =
            std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c < 0x7f; });
        value += (i == 0 ? "" : ", ") + (isAscii ? name : std::to_string(answer.categories[i]));
    }
    return value;
}

// Removes the prefix; false if there is none.
bool takePrefix(std::string_view* string, std::string_view prefix) {
    if (string->substr(0, prefix.size()) != prefix) return false;
    string->remove_prefix(prefix.size());
    return true;
}

}  // namespace

Service::Service(const Settings& settings, Rules rules)
    : pool_(settings.socket, settings.connections, settings.answerMs),
      metrics_(settings.connections),
      katdLog_(settings.katdLog),
      rules_(std::make_shared<const Rules>(std::move(rules))) {}

void Service::setRules(Rules rules) {
    auto pointer = std::make_shared<const Rules>(std::move(rules));
    const std::lock_guard<std::mutex> guard(mutex_);
    rules_ = std::move(pointer);
}

Service::RulesPointer Service::rules() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return rules_;
}

katclient_answer Service::ask(const std::string& url) {
    const Clock::time_point start = Clock::now();
    const katclient_answer answer = pool_.ask(url);
    const auto time = Clock::now() - start;
    metrics_.addAnswer(answer, time);
    history_.add(answer, time);
    return answer;
}

void Service::ask(const std::vector<std::string>& urls, std::vector<katclient_answer>* answers) {
    const Clock::time_point start = Clock::now();
    pool_.ask(urls, answers);
    const auto time = Clock::now() - start;
    for (const katclient_answer& answer : *answers) {
        metrics_.addAnswer(answer, time);
        history_.add(answer, time);
    }
}

bool Service::katdAnswers() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (Clock::now() < nextCheck_) return answers_;
    }
    const bool answers = pool_.ask(healthUrl).status == KATCLIENT_OK;
    metrics_.setAnswers(answers);
    const std::lock_guard<std::mutex> guard(mutex_);
    answers_ = answers;
    nextCheck_ = Clock::now() + checkInterval;
    return answers;
}

void Service::answerPublic(const httplib::Request& request, httplib::Response& response) {
    if (!dispatchPublic(request, response)) replyProblem(response, 404, "no such page");
}

void Service::answerAdministrator(const httplib::Request& request, httplib::Response& response) {
    if (!dispatchAdministrator(request, response)) replyProblem(response, 404, "no such page");
}

void Service::answerAll(const httplib::Request& request, httplib::Response& response) {
    if (!dispatchPublic(request, response)) answerAdministrator(request, response);
}

bool Service::dispatchPublic(const httplib::Request& request, httplib::Response& response) {
    // The raw target, because httplib's path is decoded and has no query.
    std::string_view target = request.target;
    if (takePrefix(&target, "/v1/auth/")) {
        authorise(request, target, response);
        return true;
    }
    const bool isGet = request.method == "GET" || request.method == "HEAD";
    if (request.path == "/v1/categories" && isGet)
        oneUrl(request, response);
    else if (request.path == "/v1/categories" && request.method == "POST")
        manyUrls(request, response);
    else if (request.path == "/blocked" && isGet)
        blocked(request, response);
    else
        return false;
    return true;
}

bool Service::dispatchAdministrator(const httplib::Request& request, httplib::Response& response) {
    if (request.method != "GET" && request.method != "HEAD") return false;
    if (request.path == "/")
        administrator(request, response);
    else if (request.path == "/metrics")
        metrics(response);
    else if (request.path == "/healthz")
        health(response);
    else
        return false;
    return true;
}

void Service::oneUrl(const httplib::Request& request, httplib::Response& response) {
    const std::string url = request.get_param_value("url");
    const std::string asked = askedUrl(url);
    if (asked.empty()) return replyProblem(response, 400, "url is missing or is not a URL");
    const katclient_answer answer = ask(asked);
    reply(response, answer.status == KATCLIENT_OK ? 200 : 503, answerJson(url, answer, rules()->names) + "\n",
          jsonType);
}

void Service::manyUrls(const httplib::Request& request, httplib::Response& response) {
    // Not tools::Json, which searches the members of an object one by one.
    const auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (!body.is_array() || body.size() > mostUrls)
        return replyProblem(response, 400, "the body must be a JSON array of at most 1000 URLs");
    std::vector<std::string> urls;
    std::vector<std::string> asked;
    for (const auto& item : body) {
        urls.push_back(item.is_string() ? item.get<std::string>() : std::string());
        asked.push_back(askedUrl(urls.back()));
        if (asked.back().empty())
            return replyProblem(response, 400,
                                "item " + std::to_string(urls.size()) + " of the array is not a URL");
    }
    std::vector<katclient_answer> answers;
    ask(asked, &answers);
    const RulesPointer now = rules();
    std::string list = "[";
    bool hasAnswer = urls.empty();
    for (std::size_t i = 0; i < urls.size(); ++i) {
        list += (i == 0 ? "" : ",") + answerJson(urls[i], answers[i], now->names);
        hasAnswer = hasAnswer || answers[i].status == KATCLIENT_OK;
    }
    reply(response, hasAnswer ? 200 : 503, list + "]\n", jsonType);
}

void Service::authorise(const httplib::Request& request, std::string_view rest, httplib::Response& response) {
    const std::size_t end = std::min(rest.find_first_of("/?"), rest.size());
    const RulesPointer now = rules();
    const auto found = now->policies.find(rest.substr(0, end));
    if (found == now->policies.end()) return replyProblem(response, 404, "no such policy");
    const Policy& policy = found->second;
    const std::string url = requestUrl(policy.source, request, rest.substr(end));
    const std::string asked = askedUrl(url);
    if (asked.empty()) {
        metrics_.addVerdict(Verdict::fail);
        return replyProblem(response, 400,
                            "the request does not name one URL in the headers of this policy's proxy");
    }
    const katclient_answer answer = ask(asked);
    const Decision decision = policy.decide(answer);
    metrics_.addVerdict(decision.verdict);
    if (answer.count > 0) response.set_header("X-Katd-Categories", headerValue(answer, now->names));
    switch (decision.verdict) {
        case Verdict::pass:
            response.status = 204;
            return;
        case Verdict::fail:
            return replyProblem(response, 503, katclient_status_text(answer.status));
        case Verdict::refuse:
            if (!policy.blockPage.empty()) {
                response.set_header(
                    "Location",
                    policy.blockPage + "?policy=" + urlEncoded(found->first) + "&url=" + urlEncoded(url) +
                        "&category=" + (decision.category < 0 ? "" : std::to_string(decision.category)));
            }
            // Some proxies pass this body on to the browser.
            replyPage(response, static_cast<int>(policy.refusedStatus),
                      blockedPage(policy, url, nameOf(now->names, decision.category)));
    }
}

void Service::blocked(const httplib::Request& request, httplib::Response& response) {
    const RulesPointer now = rules();
    const auto found = now->policies.find(request.get_param_value("policy"));
    const std::string url = request.get_param_value("url");
    const std::string asked = askedUrl(url);
    if (found == now->policies.end() || asked.empty())
        return replyPage(response, 400,
                         problemPage("Not a block page",
                                     "The address of this page does not name a policy "
                                     "and a URL"));
    const katclient_answer answer = ask(asked);
    const Decision decision = found->second.decide(answer);
    switch (decision.verdict) {
        case Verdict::refuse: {
            // The parameter may only select one of the URL's categories that the policy names.
            int category = decision.category;
            const auto wanted = now->names.resolve(request.get_param_value("category"));
            for (unsigned i = 0; i < answer.count; ++i) {
                const std::uint8_t number = answer.categories[i];
                if (found->second.named[number] != found->second.allows && wanted == number)
                    category = number;
            }
            return replyPage(response, 403, blockedPage(found->second, url, nameOf(now->names, category)));
        }
        case Verdict::pass:
            return replyPage(response, 200, notBlockedPage(url));
        case Verdict::fail:
            return replyPage(response, 503, problemPage("No answer", katclient_status_text(answer.status)));
    }
}

void Service::administrator(const httplib::Request& request, httplib::Response& response) {
    const RulesPointer now = rules();
    LookUp lookUp;
    lookUp.url = request.get_param_value("url");
    if (!lookUp.url.empty()) {
        const std::string asked = askedUrl(lookUp.url);
        const katclient_answer answer = asked.empty() ? katclient_answer{} : ask(asked);
        if (asked.empty()) {
            lookUp.problem = "This is not a URL: write for example https://www.example.org/page";
        } else if (answer.status != KATCLIENT_OK) {
            lookUp.problem = katclient_status_text(answer.status);
        }
        if (!asked.empty()) lookUp.explanation = explanationHtml(explainer_.ask(asked), answer, now->names);
        lookUp.isKnown = answer.known != 0;
        for (unsigned i = 0; i < answer.count; ++i) {
            const std::string& name = now->names.nameOf(answer.categories[i]);
            lookUp.categories.push_back(std::to_string(answer.categories[i]) +
                                        (name.empty() ? "" : " " + name));
        }
    }
    replyPage(response, 200, administratorPage(lookUp, history_.last(), now->names));
}

void Service::metrics(httplib::Response& response) {
    katdAnswers();
    if (!katdLog_.empty()) {
        std::ifstream log(katdLog_, std::ios::binary | std::ios::ate);
        const std::streamoff size = log ? static_cast<std::streamoff>(log.tellg()) : 0;
        log.seekg(std::max<std::streamoff>(size - logTail, 0));
        const std::string tail{std::istreambuf_iterator<char>(log), {}};
        unsigned urls = 0;
        unsigned matched = 0;
        const std::size_t found = tail.rfind("All urls [");
        if (found != tail.npos &&
            std::sscanf(tail.c_str() + found, "All urls [%u], matched from cache [%u]", &urls, &matched) == 2)
            metrics_.setEngineCounters(urls, matched);
    }
    reply(response, 200, metrics_.page(), "text/plain; version=0.0.4; charset=utf-8");
}

void Service::health(httplib::Response& response) {
    if (katdAnswers())
        reply(response, 200, "katd answers\n", "text/plain");
    else
        reply(response, 503, "katd does not answer\n", "text/plain");
}

}  // namespace gateway
