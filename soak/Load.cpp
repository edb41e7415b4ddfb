#include "Load.h"

#include <fcntl.h>
#include <sys/time.h>

#include <chrono>
#include <filesystem>
#include <numeric>

#include "asapsdk.h"

namespace katd_test {

namespace {

constexpr unsigned ITEMS = 2000;  // of each list

std::string digits(unsigned number, std::size_t width) {
    const std::string text = std::to_string(number);
    return std::string(width - text.size(), '0') + text;
}

unsigned categoryOf(unsigned item, unsigned version) {
    return 1 + item % 100 + 100 * version;
}

// 1 to count.
std::vector<unsigned> numbersTo(unsigned count) {
    std::vector<unsigned> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

std::string joined(const std::vector<unsigned>& numbers) {
    std::string text;
    for (const unsigned number : numbers)
        text += (text.empty() ? "" : ",") + std::to_string(number);
    return text;
}

void pauseMs(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace

Load::Load(const Home& home, Findings& findings) : home_(home), findings_(findings) {
    for (unsigned version = 0; version < 2; ++version) {
        std::vector<std::string> urls;
        std::vector<std::string> domains;
        for (unsigned item = 0; item < ITEMS; ++item) {
            const std::string start = digits(categoryOf(item, version), 3) + "|";
            urls.push_back(start + "shop.example/" + digits(item, 5) + "/");
            domains.push_back(start + "site" + digits(item, 5) + ".example");
        }
        lists_[version][0] = listFile(urls);
        lists_[version][1] = listFile(domains);
    }
    for (unsigned i = 0; i < ASKERS; ++i)
        askers_.emplace_back(i);
    writeLists(0);
    writeRules();
}

void Load::start() {
    stop_ = false;
    for (Asker& asker : askers_)
        threads_.emplace_back([this, &asker] { ask(asker); });
    for (unsigned sender = 0; sender < MARKERS; ++sender)
        threads_.emplace_back([this, sender] { mark(sender); });
    threads_.emplace_back([this] { administer(); });
    threads_.emplace_back([this] { watchCacheFile(); });
    threads_.emplace_back([this] { misbehave(); });
}

void Load::stop() {
    stop_ = true;
    for (std::thread& thread : threads_)
        thread.join();
    threads_.clear();
}

std::unique_ptr<Client> Load::connect() {
    auto client = std::make_unique<Client>(home_.socketPath());
    if (!client->connected()) {
        findings_.add("katd accepts no connection");
        return nullptr;
    }
    // Longer than any reply takes on the slowest machine.
    const timeval limit{60, 0};
    setsockopt(client->fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    return client;
}

bool Load::control(Client& client, const std::string& body) {
    ++requests;
    const bool answered = client.control(body);
    if (answered) {
        ++answers;
    } else {
        findings_.add("no reply, or one with categories, to the control request " + body);
    }
    return answered;
}

void Load::judge(const Query& query, const std::optional<Reply>& reply, bool reloading, unsigned version) {
    const std::string shown = query.message.substr(0, 80);
    allUrls += query.all;
    matchedUrls += query.matchedUrls;
    if (!reply) {
        findings_.add("no answer to " + shown);
        return;
    }
    KATD_SPACE::ReplyHeader right{};
    right.matched = query.matched;
    right.length = static_cast<std::uint32_t>(query.categories[version].size());
    if (std::memcmp(&reply->header, &right, sizeof(right)) == 0 &&
        (reply->categories == query.categories[version] ||
         (reloading && reply->categories == query.categories[1 - version]))) {
        ++answers;
        return;
    }
    findings_.add("wrong answer to " + shown + ": [" + joined(reply->categories) + "] matched " +
                  std::to_string(reply->header.matched) + " instead of [" +
                  joined(query.categories[version]) + "] matched " + std::to_string(query.matched) +
                  (reloading ? " during a reload" : ""));
}

Load::Query Load::randomQuery(Random& random) {
    const unsigned item = random.below(ITEMS);
    const std::string prefix = random.below(4) == 0 ? "url1" : "url0";
    const auto listed = [&](const std::string& url) {
        return Query{prefix + url, {{categoryOf(item, 0)}, {categoryOf(item, 1)}}, true, 0, 0};
    };
    const auto asked = [&](const std::string& url, const std::vector<unsigned>& numbers, bool matched) {
        return Query{prefix + url, {numbers, numbers}, matched, 1, matched ? 1U : 0U};
    };
    // Longer than the fixed buffer of a connection.
    const auto longPath = [&] { return "/" + std::string(4080 + random.below(8000), 'a'); };
    const unsigned kind = random.below(200);
    if (kind < 70) return listed("HTTP://Shop.example/" + digits(item, 5) + "/cart?number=1");
    if (kind < 110) return listed(" https://site" + digits(item, 5) + ".Example/page ");
    if (kind < 114) return listed("site" + digits(item, 5) + ".example" + longPath());
    if (kind < 150) return asked("http://hit.example/" + std::to_string(item), {5, 44}, true);
    if (kind < 152) return asked("hit.example" + longPath(), {5, 44}, true);
    if (kind < 172) return asked("unknown.example/" + std::to_string(item), {}, false);
    if (kind < 184) return asked("final.example", {}, true);
    if (kind < 192) return asked("fail.example", {}, false);
    if (kind < 194) return asked("slow.example", {9}, true);
    std::vector<unsigned> many = numbersTo(256);
    many.back() = 0;  // the low byte of 256
    return asked("many.example", many, true);
}

void Load::ask(Asker& asker) {
    std::unique_ptr<Client> client;
    while (goesOn()) {
        if (!client || asker.random.below(100) == 0) client = connect();
        if (!client) return;
        if (asker.random.below(20) == 0) {
            askRetried(*client, asker);
        } else {
            askBatch(*client, asker.random);
        }
    }
}

void Load::askBatch(Client& client, Random& random) {
    std::string bytes;
    std::vector<Query> batch;
    for (unsigned left = random.below(10) == 0 ? 20 : 1; left > 0; --left) {
        batch.push_back(randomQuery(random));
        bytes += request(batch.back().message);
    }
    requests += batch.size();
    const unsigned before = reloadStep_;
    if (!client.send(bytes)) findings_.add("katd did not read the requests");
    std::vector<std::optional<Reply>> replies;
    for (std::size_t i = 0; i < batch.size(); ++i)
        replies.push_back(client.receive());
    const bool reloading = before % 2 != 0 || before != reloadStep_;
    for (std::size_t i = 0; i < batch.size(); ++i)
        judge(batch[i], replies[i], reloading, before / 2 % 2);
}

// Under new rules the first query of the host is Unknown.
void Load::askRetried(Client& client, Asker& asker) {
    const std::lock_guard<std::mutex> guard(rulesMutex_);
    const bool known = asker.seenRules == rulesWritten_;
    asker.seenRules = rulesWritten_;
    const Query query{"url1" + asker.retriedHost, {{7}, {7}}, true, 1, known ? 1U : 0U};
    ++requests;
    if (!known) ++deeds[RETRIES];
    judge(query, client.exchange(query.message), false, 0);
}

void Load::mark(unsigned sender) {
    const std::unique_ptr<Client> client = connect();
    unsigned& number = markersSent[sender];
    for (; client && goesOn(); pauseMs(1)) {
        const std::lock_guard<std::mutex> guard(levelMutex_);
        if (control(*client, "marker " + std::to_string(sender) + " " + std::to_string(number))) ++number;
    }
}

void Load::administer() {
    // At level debug part of the time. 7 is not a level and changes nothing.
    constexpr std::uint32_t levels[] = {1, 3, 2, 7};
    Random random(1000);
    std::unique_ptr<Client> client;
    for (unsigned round = 0; goesOn(); ++round, pauseMs(20)) {
        if (round % 50 == 0) client = connect();
        if (!client) return;
        switch (round % 8) {
            case 0:
                control(*client, "log_level=" + number(levels[random.below(4)]));
                break;
            case 1:
                // At least one: askRetried() depends on it.
                control(*client, "timeout=" + number(1 + random.below(3)) + number(1 + random.below(3)));
                break;
            case 2:
                control(*client, "urls_stat");
                break;
            case 3:
                if (control(*client, "save_cache")) ++deeds[SAVES];
                break;
            case 4:
                writeRules();
                break;
            case 5:
                reload(*client);
                break;
            case 6:
                lockLog(*client);
                break;
            default:
                beSilent(*client);
        }
    }
}

void Load::writeLists(unsigned version) const {
    constexpr const char* names[] = {"urls.list", "domains.list"};
    for (unsigned i = 0; i < 2; ++i)
        writeFile(home_ / names[i], lists_[version][i]);
}

void Load::writeRules() {
    std::string text =
        "host hit.example 0,5,0,300\n"
        "host unknown.example unknown\n"
        "host final.example final\n"
        "host fail.example fail 2 110 \"service timed out\"\n"
        "host slow.example delay 20 9\n"
        "host many.example " +
        joined(numbersTo(300)) + "\n";
    for (const Asker& asker : askers_)
        text += "host " + asker.retriedHost + " unknown then 7\n";
    const std::lock_guard<std::mutex> guard(rulesMutex_);
    home_.rules(text);
    ++rulesWritten_;
}

void Load::reload(Client& client) {
    const unsigned version = (reloadStep_++ / 2 + 1) % 2;
    writeLists(version);
    // katd refuses a reload while a look-up from before the previous reload is still running.
    for (int tries = 0; tries < 200 && control(client, "assis_reload"); ++tries, pauseMs(5)) {
        const std::optional<Reply> reply = client.ask("site00000.example");
        if (!reply) break;
        if (reply->categories == std::vector<unsigned>{categoryOf(0, version)}) {
            ++deeds[RELOADS];
            ++reloadStep_;
            return;
        }
    }
    findings_.add("the lists were not reloaded");
}

// At level info an error is not logged: LogFiles reports such a marker in the log.
void Load::beSilent(Client& client) {
    const std::lock_guard<std::mutex> guard(levelMutex_);
    for (const std::string& body :
         {"log_level=" + number(0), std::string("unlogged"), "log_level=" + number(1)})
        control(client, body);
}

// Locks the log as another process that writes to it would: only a thread with something to log may wait.
void Load::lockLog(Client& client) {
    const std::lock_guard<std::mutex> guard(levelMutex_);
    control(client, "log_level=" + number(1));
    const int fd = open(("/tmp/" + home_.logName() + ".lock").c_str(), O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (fcntl(fd, F_SETLKW, &whole) != 0) findings_.add("the log cannot be locked");
    for (int i = 0; i < 20; ++i) {
        if (!client.ask("site00000.example")) findings_.add("no answer while the log is locked");
    }
    close(fd);
    ++deeds[LOG_LOCKS];
}

bool Load::isWholeCache(const std::string& path) {
    void* engine = CSDKMain_Create("WebSecCacheMaxEntries=1000");
    const bool isWhole = CSDKMain_LoadWebSecCache(engine, path.c_str()) == 0;
    CSDKMain_Close(engine);
    return isWhole;
}

// The cache file is complete at any time.
void Load::watchCacheFile() {
    const std::string path = home_ / "data/cache";
    for (; goesOn(); pauseMs(5)) {
        if (!std::filesystem::exists(path)) continue;  // nothing saved yet
        if (!isWholeCache(path)) findings_.add("the cache file is incomplete");
        ++deeds[CACHE_LOOKS];
    }
}

void Load::misbehave() {
    Random random(2000);
    std::vector<std::unique_ptr<Client>> held(60);  // idle, or with replies that are never read
    for (unsigned round = 0; goesOn(); ++round, pauseMs(2)) {
        std::unique_ptr<Client> client = connect();
        if (!client) return;
        if (round % 3 == 0) {
            beRefused(*client, random.below(6));
        } else if (round % 3 == 1) {
            hangUp(*client, random.below(6));
        } else {
            const std::string bytes = request("url0site00000.example");
            while (round % 2 == 0 &&
                   ::send(client->fd(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
            }
            held[round / 3 % held.size()] = std::move(client);
        }
    }
}

void Load::beRefused(Client& client, unsigned kind) {
    const std::string messages[] = {
        request("GET /index.html"), request("URL0hit.example"), request("url0"), number(0),
        number(0xFFFFFFFF),         number(0x7FFFFFFF)};
    if (!client.send(messages[kind]) || client.receive())
        findings_.add("katd did not close the connection on bad message " + std::to_string(kind));
    ++deeds[REFUSALS];
}

void Load::hangUp(Client& client, unsigned kind) {
    const std::string messages[] = {request("url0hit.example/left"), request("url0site00000.example"),
                                    number(50) + "url0hit.example",  number(5000) + "url1hit.example",
                                    number(10 << 20) + "ctl:",       "\x05"};
    if (!client.send(messages[kind])) findings_.add("katd did not read a message");
    // A complete request is served all the same.
    if (kind == 0) ++allUrls;
    if (kind == 0) ++matchedUrls;
    ++deeds[HANG_UPS];
}

}  // namespace katd_test
