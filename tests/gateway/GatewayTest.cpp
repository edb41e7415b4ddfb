// katd-http without its main: raw requests in, raw replies out, a fake daemon behind.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "HttpServer.h"
#include "KatdPool.h"
#include "Service.h"
#include "Settings.h"
#include "support/FakeDaemon.h"

// httplib is a library of the system, compiled without ThreadSanitizer, which does not see how it initialises
// statics.
extern "C" const char* __tsan_default_options() {
    return "ignore_noninstrumented_modules=1";
}

namespace {

using namespace gateway;
using namespace katd_test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char settingsText[] = R"([katd-http]
socket = katd.sock
answer_timeout = 300
categories = categories
policies = nginx, traefik, envoy, kids, open, squid

[policy nginx]
proxy = nginx
block = 10-19, advertising
block_page = http://filter.example/blocked

[policy traefik]
proxy = traefik
block = news
refuse = 302
block_page = http://filter.example/blocked

[policy envoy]
proxy = envoy
block = news
on_unknown = block
on_failure = block

[policy kids]
proxy = nginx
allow = news
title = Not for "kids" <b>
contact = Ask the library desk

[policy squid]
proxy = squid
block = news

[policy open]
proxy = nginx
block = news
on_failure = pass
)";

// Knows hosts by their first label: a12 has category 12, none is without category, late is never answered.
std::string answerOf(const std::string& message) {
    const std::string url = message.substr(4);
    const std::size_t host = url.find("://") == url.npos ? 0 : url.find("://") + 3;
    const std::string label = url.substr(host, url.find('.', host) - host);
    if (label == "late") return "";
    if (label == "none") return reply(1, "");
    if (label[0] != 'a') return reply(0, "");
    return reply(1, std::string(1, static_cast<char>(std::stoi(label.substr(1)))));
}

// One end of a connection whose other end a thread serves.
class Connection {
public:
    Connection(HttpServer* server, std::size_t listener = 0) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets_), 0);
        thread_ = std::thread([this, server, listener] {
            server->serve(sockets_[1], listener);
            shutdown(sockets_[1], SHUT_RDWR);
        });
    }
    ~Connection() {
        shutdown(sockets_[0], SHUT_RDWR);
        thread_.join();
        close(sockets_[0]);
        close(sockets_[1]);
    }
    void send(const std::string& text) { ::send(sockets_[0], text.data(), text.size(), MSG_NOSIGNAL); }
    void endSending() { shutdown(sockets_[0], SHUT_WR); }
    std::string receiveAll() {
        std::string text;
        char buffer[4096];
        for (ssize_t size; (size = recv(sockets_[0], buffer, sizeof buffer, 0)) > 0;)
            text.append(buffer, static_cast<std::size_t>(size));
        return text;
    }

private:
    int sockets_[2];
    std::thread thread_;
};

struct GatewayTest : testing::Test {
    GatewayTest() {
        // What katc prints, and that it is asked for the URL as katd is.
        writeFile(dir_ / "katc", R"sh(#!/bin/sh
case "$*" in
    "why --json -- a1.example") echo '{"looked_up":"a1.example","category":1,"item":"a1.<b>","match":"host","list":"/l"}' ;;
    *" a2.example") echo '{"category":9,"item":"a","match":"prefix","list":"/l"}' ;;
    *" a3.example") echo '{"catalog":{"catalog":"/c.mdb","entries":[
{"entry":"a3","instead":true,"counts":true,"categories":[{"category":12,"list":"<i>.txt","lines":7}]},
{"entry":"example","instead":false,"counts":false,"categories":[{"category":3000,"name":"x<y","list":"b","lines":8}]}]}}' | tr -d '\n' ;;
    *" a4.example") echo "katc why: cannot open <conf> (Permission denied)." >&2; exit 2 ;;
    *" a5.example") echo '{"list":1}' ;;
esac
)sh");
        chmod((dir_ / "katc").c_str(), 0755);
        setenv("PATH", (dir_.path() + ":" + std::getenv("PATH")).c_str(), 1);
        start(HttpLimits());
    }
    ~GatewayTest() override { setenv("PATH", path_.c_str(), 1); }
    void start(const HttpLimits& limits) {
        server_ = std::make_unique<HttpServer>(
            limits, std::vector<Listener>(),
            std::vector<HttpServer::Handler>{
                [this](const auto& request, auto& response) { service_.answerAll(request, response); },
                [this](const auto& request, auto& response) { service_.answerPublic(request, response); }});
    }
    std::string settingsFile(const std::string& text = settingsText) {
        writeFile(dir_ / "categories", "news = 12\nadvertising = 44\n<i>odd</i> = 60\n");
        writeFile(dir_ / "http.ini", text);
        return dir_ / "http.ini";
    }
    std::string home() const { return dir_.path() + "/"; }
    // The reply to a request, which ends the connection.
    std::string ask(const std::string& request, std::size_t listener = 0) {
        Connection connection(server_.get(), listener);
        connection.send(request);
        connection.endSending();
        return connection.receiveAll();
    }
    std::string get(const std::string& target, const std::string& headers = "", std::size_t listener = 0) {
        return ask("GET " + target + " HTTP/1.1\r\n" + headers + "\r\n", listener);
    }

    const std::string path_ = std::getenv("PATH");
    TempDir dir_;
    FakeDaemon daemon_{dir_ / "katd.sock", answerOf};
    Service service_{readSettings(settingsFile(), home()), readRules(settingsFile(), home())};
    std::unique_ptr<HttpServer> server_;
};

// A request, with the lines of its header, and the status and a part of its reply.
struct Row {
    std::string target, header;
    int status;
    const char* part;
};

TEST_F(GatewayTest, AnswersEachRequest) {
    std::string escapes;  // of a path of 16 KB
    for (int i = 0; i < 16000; ++i)
        escapes += "%41";
    // clang-format off
    const Row rows[] = {
        {"/v1/categories?url=http%3A%2F%2Fa12.example%2F%22", "", 200,
         R"({"url":"http://a12.example/\"","known":true,"categories":[12],"names":["news"]})"},
        {"/v1/categories?url=none.example", "", 200, R"("known":true,"categories":[])"},
        {"/v1/categories?url=x.example", "", 200, R"("known":false)"}, {"/v1/categories", "", 400, "error"},
        {"/v1/categories?url=http://", "", 400, "error"}, {"/v1/categories?url=a%00b", "", 400, "error"},
        {"/v1/categories?url=late.example", "", 503, R"("error":)"},
        // A port, user information and dots at the end are no part of the question.
        {"/v1/categories?url=http://me@a12.example.:8080/", "", 200, "[12]"},
        {"/v1/auth/nginx", "X-Original-URL: http://a12.example/x?y", 403,
         "Location: http://filter.example/blocked?policy=nginx&url=http%3A%2F%2Fa12.example%2Fx%3Fy&category=12\r\n"},
        {"/v1/auth/nginx", "X-Original-URL: http://a44.example/", 403, "X-Katd-Categories: advertising\r\n"},
        {"/v1/auth/nginx", "X-Original-URL: http://a9.example/", 204, "X-Katd-Categories: 9\r\n"},
        {"/v1/auth/nginx", "X-Original-URL: http://x.example/", 204, ""},
        {"/v1/auth/nginx", "X-Original-URL: http://late.example/", 503, "error"},
        {"/v1/auth/open", "X-Original-URL: http://late.example/", 204, ""},
        {"/v1/auth/kids", "X-Original-URL: http://a12.example/", 204, ""},
        {"/v1/auth/kids", "X-Original-URL: http://a13.example/", 403,
         "<h1 class=\"stop\">Not for &quot;kids&quot; &lt;b&gt;</h1>"},
        {"/v1/auth/kids", "X-Original-URL: http://x.example/", 403, ""},
        // A header of a client beside that of the front server, or instead of it.
        {"/v1/auth/nginx", "X-Original-URL: http://a9.example/\r\nX-Original-URL: http://a12.example/", 400, "error"},
        {"/v1/auth/nginx", "X-Forwarded-Proto: http\r\nX-Forwarded-Host: a9.example\r\nX-Forwarded-Uri: /", 400,
         "error"},
        {"/v1/auth/traefik", "X-Forwarded-Proto: https\r\nX-Forwarded-Host: a12.example\r\nX-Forwarded-Uri: /a?b\r\n"
         "X-Original-URL: http://a9.example/", 302, "url=https%3A%2F%2Fa12.example%2Fa%3Fb&"},
        {"/v1/auth/envoy/path?q=1", "Host: a12.example", 403, "a12.example/path?q=1"},
        {"/v1/auth/envoy/", "Host: x.example", 403, ""}, {"/v1/auth/envoy/", "Host: late.example", 403, ""},
        {"/v1/auth/nobody", "X-Original-URL: http://a9.example/", 404, "policy"},
        {"/blocked?policy=nginx&url=http://a12.example/&category=44", "", 403, "<dd>news</dd>"},
        {"/blocked?policy=nginx&url=http://a12.example/&category=advertising", "", 403, "<dd>news</dd>"},
        {"/blocked?policy=squid&url=http://a12.example/&category=news", "", 403, "<dd>news</dd>"},
        {"/v1/auth/squid", "X-Original-URL: http://a12.example/", 400, "error"},
        {"/blocked?policy=nginx&url=http://a9.example/&category=12", "", 200, "not blocked"},
        {"/blocked?policy=nginx&url=http://late.example/", "", 503, "No answer"},
        {"/blocked?url=http://a12.example/", "", 400, ""}, {"/healthz", "", 200, "katd answers"},
        {"/metrics", "", 200, "katd_up 1"}, {"/?url=a60.example", "", 200, "60 &lt;i&gt;odd&lt;/i&gt;"},
        {"/?url=%22%3E%3Cscript%3Ealert(1)", "", 200, "value=\"&quot;&gt;&lt;script&gt;alert(1)\""},
        {"/?url=a1.example.", "", 200, "<code>/l</code></dd>\n<dt>Item</dt><dd><code>a1.&lt;b&gt;</code>, which is the "
         "host<br>1</dd>\n</dl>"},
        {"/?url=a2.example", "", 200, "with which the URL begins<br>9</dd>\n<dt>Note</dt><dd>katd answers otherwise"},
        {"/?url=a3.example", "", 200, "<dd><code>a3</code>, an exception: less specific entries do not count<br>12 news, "
         "from <code>&lt;i&gt;.txt</code> (7 lines)</dd>\n<dt>Entry</dt><dd><code>example</code>, does not count: below an "
         "exception<br>3000 x&lt;y, from <code>b</code> (8 lines)"},
        {"/?url=a4.example", "", 200, "<dd>katc why: cannot open &lt;conf&gt; (Permission denied).</dd>"},
        {"/?url=a5.example", "", 200, "of different versions"},
        // Long lines, and escapes in headers.
        {"/v1/auth/nginx", "X-Original-URL: http://a12.example/a%20b", 403, "&url=http%3A%2F%2Fa12.example%2Fa%2520b&"},
        {("/v1/categories?x=%&url=a12.example/" + escapes), "", 200, "AAA\",\"known\":true,\"categories\":[12]"},
        {"/v1/auth/nginx", ("X-Original-URL: http://a12.example/" + escapes), 403, "%2541%2541&category=12"},
        {"/healthz", ("Transfer-Encoding: " + escapes), 400, "error"},
        {("/" + escapes + escapes), "", 414, "POST"}, {"/healthz", ("X: " + escapes + escapes), 431, "error"},
        {"/nothing", "", 404, "error"},
        {"/v1/categories?url=a12.example", "Content-Length: 1\r\nContent-Length: 2", 400, "twice"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE((row.target + " " + row.header).substr(0, 200));
        const std::string text = get(row.target, row.header.empty() ? "" : row.header + "\r\n");
        EXPECT_EQ(text.substr(0, 12), "HTTP/1.1 " + std::to_string(row.status));
        EXPECT_THAT(text, HasSubstr(row.part));
        EXPECT_THAT(text, Not(HasSubstr("<script>alert")));
    }
}

TEST_F(GatewayTest, AnswersManyUrlsInOrder) {
    const auto post = [this](const std::string& body) {
        return ask("POST /v1/categories HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n\r\n" + body);
    };
    std::string urls, expected, found;
    for (int i = 0; i < 300; ++i) {
        const std::string number = std::to_string(i % 200 + 1);
        urls += (i == 0 ? "[\"a" : ",\"a") + number + ".example\"";
        expected += "\"categories\":[" + number + "]";
    }
    std::string text = post(urls + "]");
    for (std::size_t at = 0; (at = text.find("\"categories\":[", at)) != text.npos; ++at)
        found += text.substr(at, text.find(']', at) + 1 - at);
    EXPECT_EQ(found, expected);
    for (const char* wrong : {"", "{}", "[1]", "[\"a12.example\", \"\"]", "[[[[["})
        EXPECT_EQ(post(wrong).substr(0, 12), "HTTP/1.1 400") << wrong;
    std::string many = "[\"a1.example\"";
    for (int i = 0; i < 1000; ++i)
        many += ",\"a1.example\"";
    EXPECT_EQ(post(many + "]").substr(0, 12), "HTTP/1.1 400");
}

TEST_F(GatewayTest, AnAdministratorsPagesHaveAListenerOfTheirOwn) {
    for (const char* target : {"/", "/metrics", "/healthz"})
        EXPECT_EQ(get(target, "", 1).substr(0, 12), "HTTP/1.1 404") << target;
    EXPECT_EQ(get("/v1/categories?url=a1.example", "", 1).substr(0, 12), "HTTP/1.1 200");
}

TEST_F(GatewayTest, RequestsOnOneConnectionAreAnsweredInOrder) {
    Connection connection(server_.get());
    connection.send("GET /v1/auth/nginx HTTP/1.1\r\nX-Original-URL: a12.example\r\n\r\n");  // refused
    connection.send(
        "GET /v1/categories?url=a1.example HTTP/1.1\r\n\r\nGET /v1/categories?url=a2.example "
        "HTTP/1.1\r\n\r\n");
    // An unread body must not be parsed as the next request.
    connection.send(
        "GET /v1/categories?url=a3.example HTTP/1.1\r\nContent-Length: 52\r\n\r\n"
        "GET /v1/categories?url=a4.example HTTP/1.1\r\nX: y\r\n\r\n");
    const std::string text = connection.receiveAll();
    std::size_t at = 0;
    for (const char* part : {"403 Forbidden", "[1]", "[2]", "[3]"}) {
        at = text.find(part, at);
        EXPECT_NE(at, text.npos) << part;
    }
    EXPECT_THAT(text, Not(HasSubstr("[4]")));
    for (const char* length : {"Content-Length: 52\r\nContent-Length: 0", "Content-Length: %30"})
        EXPECT_THAT(
            get("/v1/categories?url=a4.example HTTP/1.1\r\n" + std::string(length) + "\r\n\r\nGET /healthz"),
            AllOf(HasSubstr(" 400 "), Not(HasSubstr("200 OK"))));
}

TEST_F(GatewayTest, ARequestWithoutEndIsEndedByItsLimits) {
    HttpLimits limits;
    limits.request = std::chrono::milliseconds(200);
    limits.headBytes = 10000;
    start(limits);
    Connection slow(server_.get());
    slow.send("GET /healthz HTTP/1.1\r\nX: ");
    EXPECT_THAT(get("/healthz"), HasSubstr("200 OK"));  // meanwhile
    EXPECT_THAT(slow.receiveAll(), Not(HasSubstr("200 OK")));
    std::string head = "GET /healthz HTTP/1.1\r\n";
    for (int i = 0; i < 400; ++i)
        head += "X-" + std::to_string(i) + ": 0123456789012345678901234567890123456789\r\n";
    EXPECT_THAT(ask(head + "\r\n"), HasSubstr("431"));
}

TEST_F(GatewayTest, AnswersOfThreadsDoNotMix) {
    KatdPool pool(dir_ / "katd.sock", 1, 0);
    std::vector<std::future<bool>> threads;
    for (int number = 1; number <= 8; ++number) {
        threads.push_back(std::async(std::launch::async, [&pool, number] {
            const std::string url = "a" + std::to_string(number) + ".example";
            for (int i = 0; i < 200; ++i) {
                const katclient_answer answer = pool.ask(url);
                if (answer.status != KATCLIENT_OK || answer.count != 1 || answer.categories[0] != number)
                    return false;
            }
            return true;
        }));
    }
    for (auto& thread : threads)
        EXPECT_TRUE(thread.get());
}

TEST_F(GatewayTest, WrongSettingsAreRefusedWithTheirPlace) {
    const std::pair<const char*, const char*> rows[] = {
        {"[katd-http]\nlisen = x\n", "line 2: no key lisen"},
        {"[katd]\n", "no section katd"},
        {"[katd-http]\nconnections = 0\n", "connections"},
        {"[katd-http]\npolicies = a\n[policy a]\nproxy = nginx\n", "block"},
        {"[katd-http]\npolicies = a\n[policy a]\nblock = 1\n", "proxy"},
        {"[katd-http]\npolicies = a\n[policy a]\nblock = nosuch\nproxy = nginx\n", "nosuch"},
        {"[katd-http]\npolicies = a\n[policy a]\nblock = 1\nproxy = nginx\nrefuse = 302\n", "block_page"},
        {"[katd-http]\npolicies = a/b\n", "a/b"},
    };
    for (const auto& [text, sentence] : rows) {
        try {
            const std::string path = settingsFile(text);
            readSettings(path, home());
            readRules(path, home());
            ADD_FAILURE() << text;
        } catch (const SettingsError& e) {
            EXPECT_THAT(e.what(), HasSubstr(sentence)) << text;
        }
    }
    EXPECT_EQ(readRules(settingsFile(), home()).policies.size(), 6u);
}

}  // namespace
